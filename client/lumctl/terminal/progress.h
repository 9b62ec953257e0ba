// Shows that something is under way, when it takes longer than a second.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace lumctl {

// Draws one line on standard error, and only when that is a terminal that can be drawn on: a bar
// that fills up towards `longest`, or one that moves to and fro when nobody knows how long it
// takes. The line is wiped when the object goes.
class progress {
 public:
  explicit progress(std::string what, std::optional<std::chrono::milliseconds> longest = {});
  ~progress();
  progress(const progress &) = delete;
  progress &operator=(const progress &) = delete;

 private:
  void run();
  bool wait(std::chrono::milliseconds time);

  std::string what_;
  std::optional<std::chrono::milliseconds> longest_;
  std::mutex mutex_;  // guards done_
  std::condition_variable changed_;
  bool done_ = false;
  std::thread thread_;
};

// The bar alone, `width` characters long.
std::string progress_bar(std::chrono::milliseconds passed,
                         std::optional<std::chrono::milliseconds> longest, std::size_t width);

}  // namespace lumctl
