// One look into many cages, by as many threads as are needed to get past those that hang.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "lum_linux/lanes.h"
#include "modules/module_entry.h"

namespace lum_linux {

struct presence_round : std::enable_shared_from_this<presence_round> {
  std::vector<std::shared_ptr<module_entry>> cages;  // does not change once the round runs

  // Returns when every cage has been looked into, or those left over do not answer.
  void run(lanes &threads);

 private:
  void go_on();

  std::mutex mutex_;  // guards the rest; never held during a look
  std::condition_variable changed_;
  std::size_t next_ = 0;
  std::size_t ended_ = 0;
};

}  // namespace lum_linux
