// Since when each port has been in its state.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>

#include "words/port_states.h"

namespace lumd {

// Any thread.
class state_log {
 public:
  using time_point = std::chrono::steady_clock::time_point;

  // The port is seen to be in the state. Returns since when it has been.
  time_point seen(uint32_t rsip, lum_words::port_state state) {
    const std::lock_guard lock(mutex_);
    const auto [found, is_new] = states_.try_emplace(rsip, entry{state});
    if (!is_new && found->second.state != state) found->second = entry{state};
    return found->second.since;
  }

 private:
  struct entry {
    lum_words::port_state state;
    time_point since = std::chrono::steady_clock::now();
  };

  std::mutex mutex_;
  std::map<uint32_t, entry> states_;
};

}  // namespace lumd
