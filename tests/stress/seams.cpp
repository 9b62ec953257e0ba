#include "seams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace stress {
namespace {

constexpr const char *skip_file = "/tmp/skip_dom_fetch";

std::atomic<bool> pauses_yield = true;

struct polling_gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool on_demand = true;
  std::chrono::microseconds pause{1000};
  uint64_t arrivals = 0;  // times the thread has come to its sleep
  uint64_t wanted = 0;    // arrivals up to which it may leave it, on demand
};

// The polling thread outlives main.
polling_gate &gate() {
  static auto &the_gate = *new polling_gate;
  return the_gate;
}

void pass_gate() {
  polling_gate &g = gate();
  std::unique_lock lock(g.mutex);
  const uint64_t mine = ++g.arrivals;
  g.changed.notify_all();
  if (!g.on_demand) g.changed.wait_for(lock, g.pause, [&] { return g.on_demand; });
  g.changed.wait(lock, [&] { return !g.on_demand || g.wanted >= mine; });
}

}  // namespace

void poll_every(std::chrono::microseconds pause) {
  const std::lock_guard lock(gate().mutex);
  gate().on_demand = false;
  gate().pause = pause;
  gate().changed.notify_all();
}

void poll_on_demand() {
  const std::lock_guard lock(gate().mutex);
  gate().on_demand = true;
  gate().wanted = 0;
  gate().changed.notify_all();
}

// The thread has to be at its sleep before the cycle can be counted.
void begin_polling_cycle() {
  polling_gate &g = gate();
  std::unique_lock lock(g.mutex);
  g.changed.wait(lock, [&] { return g.arrivals > 0; });
  g.wanted = g.arrivals;
  g.changed.notify_all();
}

bool polling_cycle_ended(std::chrono::milliseconds bound) {
  polling_gate &g = gate();
  std::unique_lock lock(g.mutex);
  return g.changed.wait_for(lock, bound, [&] { return g.arrivals > g.wanted; });
}

bool run_polling_cycle(std::chrono::milliseconds bound) {
  begin_polling_cycle();
  return polling_cycle_ended(bound);
}

void pause_for_nobody() { pauses_yield = false; }

uint64_t polling_cycles() {
  const std::lock_guard lock(gate().mutex);
  return gate().arrivals == 0 ? 0 : gate().arrivals - 1;
}

}  // namespace stress

extern "C" unsigned sleep(unsigned) {
  stress::pass_gate();
  return 0;
}

extern "C" int usleep(useconds_t) {
  if (stress::pauses_yield) std::this_thread::yield();
  return 0;
}

extern "C" int stat(const char *__restrict path, struct stat *__restrict out) noexcept {
  if (std::strcmp(path, stress::skip_file) == 0) {
    errno = ENOENT;
    return -1;
  }
  return fstatat(AT_FDCWD, path, out, 0);
}
