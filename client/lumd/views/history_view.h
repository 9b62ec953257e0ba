// The readings of the last hours, as the API shows them.
#pragma once

#include <optional>

#include "lum_linux/node_description.h"
#include "views/json.h"

namespace lumd {

class driver;

// Of one sub-port, or of both: the times of its polls, and of each reading what each poll gave.
json show_history(driver &node, const lum_linux::port_description &port,
                  std::optional<uint32_t> sub_port);

}  // namespace lumd
