// What an action that does not end is waiting for, as far as that is known.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace lumd {

class driver;

// One sentence. `concerns` says of which ports' modules the action may want something.
std::string what_holds_up(driver &node, const std::function<bool(uint32_t rsip)> &concerns);

}  // namespace lumd
