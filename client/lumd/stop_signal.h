// SIGTERM and SIGINT from the driver's first moment on: whatever hangs, the process is gone within
// a bound, for one that does not stop keeps the node from being started again.
#pragma once

#include <atomic>

namespace lumd {

class stop_signal {
 public:
  // Takes the signals on a thread of its own; no thread that is started later gets them. One a
  // process, for as long as it runs. May throw std::system_error.
  stop_signal();
  stop_signal(const stop_signal &) = delete;
  stop_signal &operator=(const stop_signal &) = delete;

  bool has_come() const { return come_; }
  void wait() const { come_.wait(false); }

 private:
  [[noreturn]] void take();

  std::atomic<bool> come_{false};
};

}  // namespace lumd
