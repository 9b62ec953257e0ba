// Work that may never end, each kind of it in a lane of its own: what one lane waits for holds up
// no other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace lum_linux {

struct lane_limits {
  std::size_t threads = 64;  // at once, those that hang among them
  std::size_t waiting = 4;   // pieces of work in one lane behind the one that runs
};

enum class lane_verdict {
  taken,
  full,       // enough work waits in that lane already
  no_thread,  // the system gives no thread and no memory, or `threads` of them are at work
  stopped,
};

// Any thread may make any call. The threads come when they are wanted and go when they have been
// idle for a while; they are left behind when the object goes while they are at work.
class lanes {
 public:
  // `name`, of at most 15 characters, is that of the threads.
  explicit lanes(const std::string &name, lane_limits limits = {});
  // As stop().
  ~lanes();
  lanes(const lanes &) = delete;
  lanes &operator=(const lanes &) = delete;

  // Runs `work` on a thread of its own once the earlier work of its lane has ended, or says why it
  // never will. What `work` throws is dropped; what it uses must live until it has ended. Waits for
  // nothing.
  lane_verdict post(uint64_t lane, std::function<void()> work);

  // Pieces of work that run or wait in a lane.
  std::size_t in_lane(uint64_t lane) const;

  // Takes no more work and drops what has not begun.
  void stop();

 private:
  struct core;
  std::shared_ptr<core> core_;
};

}  // namespace lum_linux
