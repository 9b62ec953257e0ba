// LEDs are looked at again after a look for which there was no memory.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <new>
#include <string>

#include "interface_manager/failing_memory.h"
#include "lum_linux/leds.h"
#include "test_folder.h"

namespace {

using lum_linux::leds;

constexpr uint32_t first = 1;
constexpr uint32_t last = 2;

// The look that fails may have been anywhere; the next one has to see all.
bool are_seen_after_a_look_that_failed(uint64_t served, const test_folder &folder) {
  leds all(folder / "leds", {{first, "first"}, {last, "last"}});
  EXPECT_EQ(all.set_state(first, 0), 0u);
  EXPECT_EQ(all.set_state(last, 0), 0u);
  memory_runs_out(served, 1);
  try {
    all.look();
  } catch (const std::bad_alloc &) {
    // As the driver's pass over the node, which comes again.
  }
  const bool has_failed = memory_runs_out(0, 0) != 0;
  for (const char *name : {"first", "last"}) {
    std::ofstream(folder / "leds" / (std::string(name) + ":red:fault") / "brightness") << "1\n";
  }
  all.look();
  for (const uint32_t port : {first, last}) EXPECT_EQ(all.status(port)->state, 3u) << served;
  return has_failed;
}

TEST(LedsWithoutMemory, AreLookedAtTheNextTime) {
#ifdef LUM_SANITIZERS_NEW
  GTEST_SKIP() << "memory does not run out here";
#endif
  const test_folder folder;
  uint64_t served = 0;
  while (are_seen_after_a_look_that_failed(served, folder)) ++served;
  EXPECT_GE(served, 4u) << "of so few allocations a look cannot consist";
}

}  // namespace
