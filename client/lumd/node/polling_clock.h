// When the library polls, and what: measured on its polling thread, in the callbacks that it makes
// there.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "lum.h"

namespace lumd {

// One pass over all ports.
struct polling_cycle {
  std::chrono::steady_clock::time_point started;
  std::chrono::steady_clock::time_point ended;
  uint32_t ports = 0;  // looked at, those that are not polled included
  // How much later it started than five seconds after the one before; absent for the first.
  std::optional<std::chrono::steady_clock::duration> lateness;
};

// The switch that pauses all polling while it is there.
inline constexpr const char *pause_switch = "/tmp/skip_dom_fetch";

// A visit that has read a module and stored what it read.
struct module_poll {
  std::chrono::steady_clock::time_point started;
  std::chrono::steady_clock::time_point ended;
};

struct polling_report {
  uint64_t cycles = 0;  // ended
  bool running = false;
  bool inside = false;  // a call of the polling thread is under way
  bool paused = false;  // the switch that pauses all polling is set
  // Since the last call of the polling thread ended, or this clock began.
  std::chrono::steady_clock::duration quiet_for{};
  uint32_t visited = 0;               // the port that was visited last, or is now
  polling_cycle current;              // while it is running
  std::optional<polling_cycle> last;  // the latest that has ended
};

// How far polling is.
struct polling_standing {
  uint64_t cycles = 0;  // ended
  bool running = false;

  bool operator==(const polling_standing &) const = default;
};

// All calls may come from any threads and wait for nothing but a short lock.
class polling_clock {
 public:
  // `now` tells the time, from any thread.
  explicit polling_clock(
      std::chrono::steady_clock::time_point (*now)() = &std::chrono::steady_clock::now)
      : now_(now) {}

  // A copy of `callbacks` that tells this clock of the calls. One clock at a time; it must live
  // until the process ends.
  lum_platform_cbs watch(const lum_platform_cbs &callbacks);

  polling_report report();
  // A part of it that asks no file.
  polling_standing standing();

  // When the end of the next cycle will be known, by the pace of the last two; nothing while one is
  // running or late, or the pace is not known.
  std::optional<std::chrono::steady_clock::time_point> next_end();

  // How long the latest cycle took that has ended; 0 before.
  std::chrono::steady_clock::duration last_pass();

  // The latest good poll of a port's module; nothing before the first. What the library stored
  // then is in its database, unless it has been cleared since.
  std::optional<module_poll> last_poll(uint32_t rsip);

  // How many good polls have been stored, of any modules: as long as that is the same, so is what
  // was polled.
  uint64_t polls();

  // For the callbacks, on the polling thread.
  void visit(uint32_t rsip);
  void enter();
  void leave();
  void has_read();

 private:
  using clock = std::chrono::steady_clock;
  void end_when_quiet(clock::time_point now);
  void end();
  void end_visit();

  clock::time_point (*const now_)();
  std::mutex mutex_;  // guards the rest
  uint64_t cycles_ = 0;
  bool running_ = false;
  bool counted_ = false;  // the current cycle is among the cycles that have ended
  bool inside_ = false;   // a callback is running
  uint32_t last_rsip_ = 0;
  clock::time_point visit_began_;
  unsigned blocks_read_ = 0;  // by the visit under way
  uint64_t stored_ = 0;
  std::map<uint32_t, module_poll> polls_;  // by rsip
  clock::time_point last_activity_ = now_();
  polling_cycle current_;
  std::optional<polling_cycle> last_;
};

}  // namespace lumd
