// The library's own count of controllers. It has 8 bits, every accepted batch adds to it or takes
// from it, and while it is 0 the library polls nothing, whatever controllers there are.
#pragma once

#include <atomic>
#include <cstdint>

namespace lumd {

uint8_t counted_controllers();

class controller_count_watch {
 public:
  // Compares the count with the ports there are, and says when polling halts and when it goes on.
  // To be called every second or so, from one thread at a time: the library counts a batch a moment
  // after it has been sent, so only what holds twice in a row is taken for halted.
  void look();

  // Nothing is polled: the count is 0, and there are ports that ought to be polled.
  bool halts_polling() const { return halted_; }

 private:
  bool seen_before_ = false;
  std::atomic<bool> halted_{false};
};

}  // namespace lumd
