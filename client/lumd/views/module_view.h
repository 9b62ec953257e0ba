// The module in a port as the API shows it.
#pragma once

#include <cstdint>
#include <span>

#include "lum_linux/modules.h"
#include "lum_linux/node_description.h"
#include "views/json.h"

namespace lumd {

class driver;

// The port's view, with more of its module. Touches no module.
json show_module(driver &node, const lum_linux::port_description &port,
                 const lum_linux::module_status &module);

// A page of the module's memory.
json show_page(uint32_t number, std::span<const uint8_t> bytes);

}  // namespace lumd
