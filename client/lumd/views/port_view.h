// A port as the API shows it.
#pragma once

#include "lum_linux/node_description.h"
#include "port_data.h"
#include "router.h"

namespace lumd {

// What a port is up to, from what hinders it most.
enum class port_state {
  absent,     // not in the library's database
  going,      // its deletion is under way
  coming_up,  // its controllers are not both confirmed yet
  empty,      // no module in the cage
  upgrading,  // the module's firmware is being upgraded; not polled
  failing,    // the module's last transfer failed, or does not end
  up,
};
std::string_view port_state_name(port_state state);

// `copy` is null for a port that the library does not know.
port_state state_of(driver &node, const lum_linux::port_description &port, const port_copy *copy);

// The whole view; `copy` as above.
json show_port(driver &node, const lum_linux::port_description &port, const port_copy *copy);

}  // namespace lumd
