#include "stop_signal.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "command_line.h"
#include "lum_linux/system.h"

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

void stop_signal::take() {
  const sigset_t set = stop_signals();
  int number = 0;
  while (sigwait(&set, &number) != 0) {
  }
  come_ = true;
  come_.notify_all();
  std::this_thread::sleep_for(bound);
  lum_linux::say_line("lumd: something does not end; leaving it behind\n");  // takes no memory
  _exit(exit_failed);
}

}  // namespace lumd
