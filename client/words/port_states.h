// What a port is up to.
#pragma once

#include "words/names.h"

namespace lum_words {

// From what hinders the port most.
enum class port_state {
  absent,     // not in the library's database
  going,      // its deletion is under way
  coming_up,  // its controllers are not both confirmed yet
  empty,      // no module in the cage
  upgrading,  // the module's firmware is being upgraded; not polled
  failing,    // the module's last transfer failed, or does not end
  stale,      // the module has not been polled for some cycles: what is shown is old
  up,
};

struct named_port_state {
  port_state id;
  std::string_view name;
};

inline constexpr std::array<named_port_state, 8> port_states = {{
    {port_state::absent, "absent"},
    {port_state::going, "deleting"},
    {port_state::coming_up, "coming up"},
    {port_state::empty, "empty"},
    {port_state::upgrading, "upgrading"},
    {port_state::failing, "failing"},
    {port_state::stale, "stale"},
    {port_state::up, "up"},
}};

}  // namespace lum_words
