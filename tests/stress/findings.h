// What the threads of a stress test have seen that must not be.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace stress {

class findings {
 public:
  // Keeps the first few, with the time since the beginning.
  void add(const std::string &text) {
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - beginning_);
    const std::lock_guard lock(mutex_);
    count_.fetch_add(1);
    if (first_.size() < 10) {
      first_.push_back("after " + std::to_string(since.count()) + " ms: " + text);
    }
  }
  uint64_t count() const { return count_.load(); }
  std::vector<std::string> first() const {
    const std::lock_guard lock(mutex_);
    return first_;
  }

 private:
  const std::chrono::steady_clock::time_point beginning_ = std::chrono::steady_clock::now();
  std::atomic<uint64_t> count_{0};
  mutable std::mutex mutex_;
  std::vector<std::string> first_;
};

}  // namespace stress
