// The library's own count of controllers. It has 8 bits, every accepted batch adds to it or takes
// from it, and while it is 0 the library polls nothing, whatever controllers there are.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace lumd {

uint8_t counted_controllers();

class controller_count_watch {
 public:
  // Compares the count with the ports there are, and says when polling halts and when it goes on.
  // From one thread at a time. The library counts a batch a moment after it has been sent, so only
  // what has held for about a second is taken for halted. Returns whether the next look is wanted
  // by then.
  bool look();

  // Nothing is polled: the count is 0, and there are ports that ought to be polled.
  bool halts_polling() const { return halted_; }

 private:
  std::optional<std::chrono::steady_clock::time_point> seen_since_;
  std::atomic<bool> halted_{false};
};

}  // namespace lumd
