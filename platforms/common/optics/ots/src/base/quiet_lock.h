// A lock of the library's own that no user sees: never marked to the deadlock monitor. What is
// waited for under one is never held by a thread that waits for it. Use with std::lock_guard.
#pragma once

#include <atomic>

namespace lum {

class quiet_lock {
 public:
  void lock() {
    while (taken_.test_and_set(std::memory_order_acquire)) {
      taken_.wait(true, std::memory_order_relaxed);
    }
  }
  void unlock() {
    taken_.clear(std::memory_order_release);
    taken_.notify_one();
  }

 private:
  std::atomic_flag taken_;
};

}  // namespace lum
