// What a port is up to.
#pragma once

#include <chrono>
#include <string>

#include "lum_linux/modules.h"
#include "lum_linux/node_description.h"
#include "node/port_data.h"
#include "words/port_states.h"

namespace lumd {

class driver;

using lum_words::port_state;

// A transfer that takes longer than this hangs.
inline constexpr std::chrono::seconds hung_after(2);

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
