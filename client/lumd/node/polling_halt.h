// Why no module is being polled.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace lumd {

class driver;

struct polling_halt {
  std::string reason;                             // for people
  std::chrono::steady_clock::duration lasting{};  // since polling was last at work
};

// Nothing while modules are polled, or there is none to be polled.
std::optional<polling_halt> halt_of(driver &node);

}  // namespace lumd
