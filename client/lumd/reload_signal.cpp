#include "reload_signal.h"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <thread>
#include <utility>

#include "node/log.h"

namespace lumd {
namespace {

sigset_t reload_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGHUP);
  return set;
}

[[noreturn]] void take(const std::function<void()> &reload) {
  pthread_setname_np(pthread_self(), "lumd-reload");
  const sigset_t set = reload_signals();
  for (;;) {
    int number = 0;
    if (sigwait(&set, &number) != 0) continue;
    try {
      reload();
    } catch (const std::exception &error) {
      say_failed("the description was not read again: ", error.what());
    }
  }
}

}  // namespace

// Blocked, it waits; ignored, it might be lost.
reload_signal::reload_signal() {
  const sigset_t set = reload_signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGHUP, SIG_DFL);
}

void reload_signal::listen(std::function<void()> reload) {
  std::thread([reload = std::move(reload)] { take(reload); }).detach();
}

}  // namespace lumd
