// What is asked of the controllers of ports that exist.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "node/lifecycle.h"
#include "node/outcome.h"

namespace lumd {

struct update_report : action_report {
  // Whether the settings have reached the module; nothing where none were to be written.
  std::optional<bool> module_written;
};

// Sends a controller state to both controllers of a port. Waits as lifecycle.h says.
outcome<update_report> update_port(driver &node, const lum_linux::port_description &port,
                                   uint32_t state, wait_time wait);

struct replay_report : action_report {
  std::size_t controllers = 0;  // of ports that are not on their way out
  std::size_t confirmed = 0;    // those of them that the interface manager has, by this handle
};

// Asks for the controllers of every port again.
outcome<replay_report> replay_controllers(driver &node, wait_time wait);

// Has the entity agent asked for a replay.
action_report ask_for_resync();

struct clear_report : action_report {
  std::size_t controllers = 0;
};

// Sets the alarm counters of the ports' controllers back.
outcome<clear_report> clear_statistics(const port_list &ports);

}  // namespace lumd
