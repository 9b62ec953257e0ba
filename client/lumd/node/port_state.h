// What a port is up to.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "lum_linux/modules.h"
#include "lum_linux/node_description.h"
#include "node/port_data.h"

namespace lumd {

class driver;

// From what hinders the port most.
enum class port_state {
  absent,     // not in the library's database
  going,      // its deletion is under way
  coming_up,  // its controllers are not both confirmed yet
  empty,      // no module in the cage
  upgrading,  // the module's firmware is being upgraded; not polled
  failing,    // the module's last transfer failed, or does not end
  up,
};

struct named_port_state {
  port_state state;
  std::string_view name;
};
std::span<const named_port_state> port_states();
std::string_view port_state_name(port_state state);

struct port_condition {
  port_state state = port_state::absent;
  std::string reason;               // why it is not up, for people; else empty
  lum_linux::module_status module;  // as known last
};

// `copy` is null for a port that the library does not know.
port_condition condition_of(driver &node, const lum_linux::port_description &port,
                            const port_copy *copy);
port_state state_of(driver &node, const lum_linux::port_description &port, const port_copy *copy);

}  // namespace lumd
