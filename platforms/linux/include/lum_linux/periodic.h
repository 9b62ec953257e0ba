// A thread that does one thing over and over.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace lum_linux {

class periodic {
 public:
  using milliseconds = std::chrono::milliseconds;

  // Starts the thread, with `name` of at most 15 characters; it takes no signals. `work` runs when
  // `before_first` has passed and then each time `period` has passed since its last run ended. What
  // it uses must live until stop() has returned true, or to the end of the process. May throw
  // std::system_error when there is no thread, and std::bad_alloc.
  periodic(const std::string &name, milliseconds period, std::function<void()> work,
           milliseconds before_first = {});
  // The same for `work` that returns how long it may rest; where it throws, it rests for
  // `otherwise`.
  periodic(const std::string &name, std::function<milliseconds()> work, milliseconds otherwise,
           milliseconds before_first = {});
  // As stop() with its default bound.
  ~periodic();
  periodic(const periodic &) = delete;
  periodic &operator=(const periodic &) = delete;

  // How long ago the latest run ended, or the thread began.
  std::chrono::steady_clock::duration since_round() const;

  // The work runs again as soon as it can, and at least once from its start on. Waits for nothing
  // but a short lock; any thread.
  void hasten();

  // Ends the thread. Returns false when `work` was still running after `bound`; the thread is then
  // left behind.
  bool stop(milliseconds bound = milliseconds(500));

 private:
  struct core;
  std::shared_ptr<core> core_;  // shared with the thread
};

}  // namespace lum_linux
