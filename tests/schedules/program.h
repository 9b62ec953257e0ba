// What the threads of one schedule do: drawn from its seed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace schedules {

struct outcome {
  uint64_t story = 0;  // one number for all that was chosen
  uint64_t steps = 0;
  std::vector<std::string> findings;
};

// The library has been started, and this process is thrown away afterwards.
outcome run_schedule(uint64_t seed, bool tell);

}  // namespace schedules
