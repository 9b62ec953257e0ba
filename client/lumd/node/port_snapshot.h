// A port at one moment: what the library holds of it, what is known of its module, and which of
// that is to be believed.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "lum_linux/modules.h"
#include "lum_linux/node_description.h"
#include "node/polling_clock.h"
#include "node/port_data.h"
#include "words/port_states.h"

namespace lumd {

class driver;

using lum_words::port_state;

// A transfer that takes longer than this hangs.
inline constexpr std::chrono::seconds hung_after(2);

struct port_snapshot {
  std::optional<port_copy> copy;  // nothing for a port that the library does not know
  lum_linux::module_status module;
  // There may be a module: what the library holds of it is of the one in the cage.
  bool is_filled = false;
  // All of its identity was read: which memory map it has, and so where its status is, is known.
  bool is_identified = false;
  // Polls from then on are of that module, and nothing has cleared what they stored.
  std::chrono::steady_clock::time_point begun;
  // The poll that gave the copy's readings, words and flags; nothing while they mean nothing: from
  // a creation or a replay until the next good poll, and without a module.
  std::optional<module_poll> polled;
  port_state state = port_state::absent;
  std::string reason;                           // why it is not up, for people; else empty
  std::chrono::steady_clock::time_point since;  // it has been in that state
};

// Of a bus or folder that cannot be opened, for people.
std::string why_unreachable(const lum_linux::module_status &module);
// Why the last transfer that failed did: what is known beyond its code, and the code's text.
std::string why_last_failure(const lum_linux::module_status &module);

// Whether it is known what the cage holds. What the library believes of one that is not is no more
// than its first assumption.
bool knows_presence(const lum_linux::module_status &module);

// The latest poll of what is in a port's cage now; nothing once what it stored has been cleared.
std::optional<module_poll> poll_of(driver &node, uint32_t rsip);

port_snapshot look_at(driver &node, const lum_linux::port_description &port);

// Of every port of the node, by rsip.
std::map<uint32_t, port_snapshot> look_at_ports(driver &node);

}  // namespace lumd
