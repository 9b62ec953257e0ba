// Hands what the library has polled to the performance-monitoring and alarm services.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>

#include "lum_linux/modules.h"
#include "node/cages.h"

namespace lumd {

class data_feed {
 public:
  data_feed(const lum_linux::modules &modules, const cage_watch &cages)
      : modules_(modules), cages_(cages) {}

  // Feeds the controllers of every module that has been polled since it was fed last: a module that
  // is not polled, or fails, adds nothing to the averages. Waits for nothing. One thread at a time.
  void feed_polled();

 private:
  using time_point = std::chrono::steady_clock::time_point;

  const lum_linux::modules &modules_;
  const cage_watch &cages_;
  std::map<uint32_t, time_point> fed_;  // by rsip, the transfer that was fed
};

}  // namespace lumd
