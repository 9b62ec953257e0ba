// The clock that the performance-monitoring and the alarm store share.
//
// What holds for every call stands in lum_linux/stores.h.
#pragma once

#include <chrono>
#include <functional>

namespace lum_linux {

using store_time = std::chrono::system_clock::time_point;
// When something was stored: for people, and to tell its age by whatever happens to the clock.
struct store_stamp {
  store_time time;
  std::chrono::steady_clock::time_point moment;
};
using store_clock = std::function<store_time()>;
using moment_clock = std::function<std::chrono::steady_clock::time_point()>;

// Sets both stores' clock; an empty one goes back to the system's. Moments pass as `moments` says
// or, without it, as the clock does, as when nobody ever sets that. Both are called with a store's
// lock held and must not call back.
void stores_set_clock(store_clock clock, moment_clock moments = {});

}  // namespace lum_linux
