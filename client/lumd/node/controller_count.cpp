#include "node/controller_count.h"

#include <algorithm>

#include "lum.h"
#include "node/log.h"
#include "node/port_data.h"

namespace lumd {
namespace {

// A batch has been counted by then.
constexpr std::chrono::milliseconds counting_bound(900);

// Those that exist and stay: the ports of a deletion are not polled any more.
std::size_t controllers_to_poll() {
  const auto ports = copy_ports();
  const auto staying = std::count_if(ports.begin(), ports.end(), [](const auto &port) {
    return is_created(port.second) && !is_going(port.second);
  });
  return static_cast<std::size_t>(staying) * LUM_SUB_PORTS;
}

}  // namespace

uint8_t counted_controllers() {
  return __atomic_load_n(&lum_get_ctx()->controller_count, __ATOMIC_RELAXED);
}

bool controller_count_watch::look() {
  const std::size_t existing = counted_controllers() == 0 ? controllers_to_poll() : 0;
  const bool seen = existing != 0;
  const auto now = std::chrono::steady_clock::now();
  if (!seen) seen_since_.reset();
  if (seen && !seen_since_) seen_since_ = now;
  if (seen && now - *seen_since_ >= counting_bound && !halted_) {
    halted_ = true;
    say("the library counts no controllers although there are {}: no module is polled; a replay "
        "ends that, or with 128 ports the deletion of one",
        existing);
  } else if (!seen && halted_) {
    halted_ = false;
    say("the library counts {} controllers: {}", counted_controllers(),
        counted_controllers() == 0 ? "there are none left to poll" : "modules are polled again");
  }
  return seen;
}

}  // namespace lumd
