// A thread that does one thing over and over.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace lumd {

class periodic {
 public:
  // Starts the thread, with `name` of at most 15 characters: `work` runs at once and then each time
  // `period` has passed since its last run ended. What it uses must live until stop() has returned
  // true, or to the end of the process. May throw std::system_error.
  periodic(const std::string &name, std::chrono::milliseconds period, std::function<void()> work);
  // As stop() with its default bound.
  ~periodic();
  periodic(const periodic &) = delete;
  periodic &operator=(const periodic &) = delete;

  // How long ago the latest run ended, or the thread began.
  std::chrono::steady_clock::duration since_round() const;

  // Ends the thread. Returns false when `work` was still running after `bound`; the thread is then
  // left behind.
  bool stop(std::chrono::milliseconds bound = std::chrono::milliseconds(500));

 private:
  struct core;
  std::shared_ptr<core> core_;
};

}  // namespace lumd
