// SIGHUP: the description is to be read again.
#pragma once

#include <functional>

namespace lumd {

class reload_signal {
 public:
  // From here on no thread that is started later gets the signal. One a process.
  reload_signal();
  reload_signal(const reload_signal &) = delete;
  reload_signal &operator=(const reload_signal &) = delete;

  // Calls `reload` for each signal, on a thread of its own; one that has come before counts. What
  // it throws is said. `reload` is used until the process ends. May throw std::system_error.
  static void listen(std::function<void()> reload);
};

}  // namespace lumd
