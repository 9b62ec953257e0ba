// Two threads that set the same LED at the same time.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "controllers.h"

using namespace support;

namespace {

std::atomic<uint32_t> shown;
std::atomic<uint32_t> setters;
std::atomic<uint32_t> most_setters;

cerrno set_led(uint32_t, uint32_t, uint32_t state) {
  const uint32_t now = ++setters;
  if (now > most_setters) most_setters = now;
  std::this_thread::yield();
  shown = state;
  --setters;
  return 0;
}

TEST_F(created_ports, led_set_by_two_threads_shows_what_is_recorded) {
  lum_get_ctx()->platform_cbs.led_set_state = set_led;
  for (int round = 0; round < 2000; ++round) {
    std::thread other([] { lum_optics_led_set_state(first, 0, LUM_LED_FAULT); });
    lum_optics_led_set_state(first, 0, LUM_LED_NORMAL);
    other.join();
    ASSERT_EQ(shown.load(), data_at(first).led_state) << "in round " << round;
  }
  EXPECT_EQ(most_setters.load(), 1u);
}

}  // namespace
