// What is done to the modules in the cages, from outside: taken out, put in, made to fail.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "lum_linux/modules.h"
#include "node/outcome.h"

namespace lumd {

class driver;

struct module_report : action_report {
  std::optional<lum_linux::module_status> status;  // afterwards
};

// Each waits for the module, and is refused when the module does not allow it.
outcome<module_report> insert_module(driver &node, const lum_linux::port_description &port);
outcome<module_report> insert_module(driver &node, const lum_linux::port_description &port,
                                     const std::filesystem::path &description);
outcome<module_report> remove_module(driver &node, const lum_linux::port_description &port);
outcome<module_report> set_module_faults(driver &node, const lum_linux::port_description &port,
                                         const lum_linux::fault_script &script);
outcome<module_report> release_module(driver &node, const lum_linux::port_description &port);
// Refused where the port's description names no such line.
outcome<module_report> set_module_line(driver &node, const lum_linux::port_description &port,
                                       lum_linux::module_line line, bool on);
outcome<module_report> poke_module(driver &node, const lum_linux::port_description &port,
                                   uint32_t page, uint32_t offset, uint8_t value);

}  // namespace lumd
