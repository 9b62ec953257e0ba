// Looks at the transfers to and from the modules as the library makes them, while ports are deleted
// and created: no poll begins and no setting is written on a port while its deletion keeps its
// mutex, and whoever polls or sets holds the mutex.
//
// Reads of a module's identity, which an insertion or a creation asks for, are made without the
// mutex. After a failed transfer the polling thread polls without it too, until a poll succeeds;
// such a poll must not begin on a port whose mutex is kept either.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "findings.h"
#include "lum.h"
#include "node.h"

namespace stress {

// The callbacks to give to the library, for node_shape::between.
lum_platform_cbs watched_modules(const lum_platform_cbs &platform);

struct transfer_counts {
  uint64_t polls;       // begun on a port that is known to be the one visited
  uint64_t held_polls;  // of them, those that must hold the mutex
  uint64_t settings;
};

// There is one at a time.
class module_watch {
 public:
  module_watch(node &node, findings &found);
  // Lets the polling thread end its cycle, and leaves it standing still.
  ~module_watch();
  module_watch(const module_watch &) = delete;
  module_watch &operator=(const module_watch &) = delete;

  // To be told by a thread that is about to ask the library for settings.
  void settings_asked_for() const;
  transfer_counts counts() const;

  // The library's calls, from the callbacks.
  void visited();
  void poll_begun(uint32_t rsip);
  void poll_ended(bool successfully);
  void setting_begun(uint32_t rsip);

 private:
  std::vector<port_moment> moments() const;

  node &node_;
  findings &found_;
  std::atomic<uint64_t> polls_{0};
  std::atomic<uint64_t> held_polls_{0};
  std::atomic<uint64_t> settings_{0};
};

}  // namespace stress
