// Threads that take no signals: those of the process are for its other threads.
#pragma once

#include <pthread.h>

#include <csignal>

namespace lum_linux {

// While it lives the calling thread takes no signals, nor will those that it starts.
class signals_blocked {
 public:
  signals_blocked() {
    sigset_t all;
    sigfillset(&all);
    // Those that a thread brings upon itself end the process where they are blocked.
    for (const int own : {SIGBUS, SIGFPE, SIGILL, SIGSEGV}) sigdelset(&all, own);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~signals_blocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  signals_blocked(const signals_blocked &) = delete;
  signals_blocked &operator=(const signals_blocked &) = delete;

 private:
  sigset_t before_;
};

}  // namespace lum_linux
