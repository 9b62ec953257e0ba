// The support's own lock. Not a pthread mutex, because calls of those are under test and recorded.
#pragma once

#include <atomic>
#include <thread>

namespace support {

class spin {
 public:
  void lock() {
    while (taken_.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
  }
  void unlock() { taken_.clear(std::memory_order_release); }

 private:
  std::atomic_flag taken_;
};

}  // namespace support
