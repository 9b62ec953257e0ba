// The seams between the library and libc: each passes through unless told otherwise.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>

namespace support {

// Mutex calls are recorded for watched mutexes only, as pthread_mutex_trylock(name) and so on. They
// can be made to fail whether watched or not; a failed lock or trylock leaves the mutex alone, a
// failed unlock leaves it taken.
void watch(const pthread_mutex_t &mutex, const std::string &name);

// The library finds no context while this lives.
class context_hidden {
 public:
  context_hidden();
  ~context_hidden();
  context_hidden(const context_hidden &) = delete;
  context_hidden &operator=(const context_hidden &) = delete;
};

// Whether the polling thread finds the operator's marker file. The real file is never looked at.
void set_skip_file(bool there);

// Holds the polling thread at its sleep between two cycles.
class polling_gate {
 public:
  // Waits until the thread sleeps.
  void wait_asleep();
  // Lets exactly one cycle run, and returns when the thread sleeps again.
  void run_cycle();
  void run_cycles(unsigned count);
  // Lets the cycle start, and leaves it to wait_asleep to wait for its end.
  void start_cycle();
};
extern polling_gate polling;

}  // namespace support
