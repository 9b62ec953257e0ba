// The system log behind tern.h, standard error, and the threads that wait for a mutex, as marked
// through ptd.h.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace lum_linux {

// Where lines for the system log go instead of the socket that syslog(3) writes to, /dev/log; an
// empty function goes back to that, where each is under the program's name, and is dropped when
// nobody takes it within 200 ms. The
// sink runs on the logging thread and must not log. Returns once an earlier sink is not running.
void system_log_set_sink(std::function<void(std::string_view line)> sink);

// Writes one line to the system log, or to the sink.
void system_log(std::string_view line);

// Writes a line with its line end to standard error, unless nobody takes it within a moment: a
// pipe that is not read must not hold up what has something to say. Any thread.
void say_line(std::string_view line);

struct blocked_thread {
  int32_t tid = 0;
  std::string function;
  uint32_t line = 0;
  const void *mutex = nullptr;  // not to be used
  std::chrono::steady_clock::time_point since;
};
// The threads that are waiting for a mutex now, the longest wait first.
std::vector<blocked_thread> blocked_threads();

}  // namespace lum_linux
