#include "stop_signal.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "command_line.h"
#include "node/log.h"

namespace lumd {
namespace {

constexpr std::chrono::milliseconds bound(4500);

sigset_t stop_signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

}  // namespace

stop_signal::stop_signal() {
  const sigset_t set = stop_signals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::thread([this] { take(); }).detach();
}

bool stop_signal::has_come() {
  const std::lock_guard held(mutex_);
  return come_;
}

void stop_signal::wait() {
  std::unique_lock held(mutex_);
  changed_.wait(held, [this] { return come_; });
}

void stop_signal::take() {
  const sigset_t set = stop_signals();
  int number = 0;
  while (sigwait(&set, &number) != 0) {
  }
  {
    const std::lock_guard held(mutex_);
    come_ = true;
  }
  changed_.notify_all();
  std::this_thread::sleep_for(bound);
  say("something does not end; leaving it behind");
  _exit(exit_failed);
}

}  // namespace lumd
