// One look at many things, by as many threads as are needed to get past those that hang.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "lum_linux/lanes.h"

namespace lum_linux {

struct look_round : std::enable_shared_from_this<look_round> {
  // One for each thing; they do not change once the round runs, and throw nothing. What they use
  // they must keep: a look that hangs is left behind.
  std::vector<std::function<void()>> looks;

  // Returns when all have ended, or those left over do not.
  void run(lanes &threads);

 private:
  void wait_while_it_goes_on(std::unique_lock<std::mutex> &held);
  void go_on();

  std::mutex mutex_;  // guards the rest; never held during a look
  std::condition_variable all_ended_;
  std::size_t next_ = 0;
  std::size_t ended_ = 0;
};

}  // namespace lum_linux
