// Ports that come and go leave no memory behind.
#include <gtest/gtest.h>

#include <cstdio>

#include "crew.h"
#include "lum_linux/services.h"
#include "memory_use.h"
#include "node.h"
#include "seams.h"
#include "settings.h"

namespace {

using namespace std::chrono_literals;

// What caches and buffers may take beyond the warm-up; a byte left behind for each port would be
// more than that.
constexpr int64_t allowed_growth = 16 * 1024;

void create_and_delete(stress::node &node) {
  node.create_all();
  ASSERT_TRUE(node.wait_idle());
  ASSERT_EQ(stress::ports_in_database(), node.ports().size());
  node.delete_all();
  ASSERT_TRUE(node.wait_idle());
  ASSERT_EQ(stress::ports_in_database(), 0u);
}

// Removed nodes are freed by the second look at the latest.
int64_t memory_at_rest() {
  for (int i = 0; i < 2; ++i) stress::ports_in_database();
  return static_cast<int64_t>(stress::allocated_bytes());
}

}  // namespace

TEST(memory, creating_and_deleting_the_same_64_ports_leaves_memory_where_it_was) {
  const auto rounds = stress::setting("LUM_MEMORY_ROUNDS", 1000, 20);
  const stress::watchdog dog(600s, {});
  stress::node_shape shape;
  shape.ports_per_slot = 16;
  shape.leds = false;
  stress::node node(shape);
  ASSERT_EQ(node.ports().size(), 64u);
  for (const char *channel : {"lum_error", "lum_info", "lum_debug"}) {
    lum_linux::traces_enable(channel, false);
  }
  stress::poll_every(1ms);
  for (uint64_t i = 0; i < rounds / 10; ++i) ASSERT_NO_FATAL_FAILURE(create_and_delete(node));
  const int64_t before = memory_at_rest();
  for (uint64_t i = 0; i < rounds; ++i) ASSERT_NO_FATAL_FAILURE(create_and_delete(node));
  stress::poll_on_demand();
  const int64_t growth = memory_at_rest() - before;
  std::printf("%lu rounds, %lu polling cycles: %ld bytes before, %+ld after\n",
              static_cast<unsigned long>(rounds),
              static_cast<unsigned long>(stress::polling_cycles()), static_cast<long>(before),
              static_cast<long>(growth));
  EXPECT_LT(growth, allowed_growth);
}
