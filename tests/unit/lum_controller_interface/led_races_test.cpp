// Two threads that set the same LED at the same time.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

#include "controllers.h"

namespace led_races_test {

using namespace support;

namespace {

std::atomic<uint32_t> shown;

cerrno set_led(uint32_t, uint32_t, uint32_t state) {
  std::this_thread::yield();
  shown = state;
  return 0;
}

// A callback that is held up while it sets one state.
std::atomic<uint32_t> slow_state;
std::atomic<bool> is_slow;
std::atomic<bool> go_on;

cerrno set_led_slowly(uint32_t rsip, uint32_t, uint32_t state) {
  if (state != slow_state) {
    client.set_led(rsip, state);
    return 0;
  }
  is_slow = true;
  while (!go_on) std::this_thread::yield();
  client.set_led(rsip, state);
  return 0;
}

// One lock of the client's own, which it also holds when it calls the library.
std::recursive_mutex clients_lock;

cerrno set_led_under_the_clients_lock(uint32_t, uint32_t, uint32_t) {
  const std::lock_guard lock(clients_lock);
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
}

TEST_F(created_ports, led_whose_setting_is_overtaken_is_set_again_as_recorded) {
  lum_get_ctx()->platform_cbs.led_set_state = set_led_slowly;
  slow_state = LUM_LED_FAULT;
  std::thread slow([] { EXPECT_EQ(lum_optics_led_set_state(first, 0, LUM_LED_FAULT), 0u); });
  while (!is_slow) std::this_thread::yield();
  EXPECT_EQ(lum_optics_led_set_state(first, 0, LUM_LED_NORMAL), 0u);
  EXPECT_EQ(client.led(first), LUM_LED_NORMAL);
  go_on = true;
  slow.join();
  EXPECT_EQ(client.led(first), data_at(first).led_state);
  EXPECT_EQ(data_at(first).led_state, LUM_LED_NORMAL);
}

TEST_F(created_ports, slow_led_of_one_slot_leaves_the_led_of_another_slot_alone) {
  create_ports(4, 0, {7});
  lum_get_ctx()->platform_cbs.led_set_state = set_led_slowly;
  slow_state = LUM_LED_FAULT;
  std::thread slow([] { lum_optics_led_set_state(first, 0, LUM_LED_FAULT); });
  while (!is_slow) std::this_thread::yield();
  EXPECT_EQ(lum_optics_led_set_state(0x40007, 0, LUM_LED_NORMAL), 0u);
  EXPECT_EQ(client.led(0x40007), LUM_LED_NORMAL);
  go_on = true;
  slow.join();
}

TEST_F(created_ports, client_that_holds_a_lock_of_its_own_sets_leds_from_two_threads) {
  lum_get_ctx()->platform_cbs.led_set_state = set_led_under_the_clients_lock;
  const auto set_often = [] {
    for (int i = 0; i < 2000; ++i) {
      const std::lock_guard lock(clients_lock);
      lum_optics_led_set_state(first, 0, LUM_LED_NORMAL);
    }
  };
  std::thread holding(set_often);
  for (int i = 0; i < 2000; ++i) lum_optics_led_set_state(first, 0, LUM_LED_NORMAL);
  holding.join();
}

TEST_F(created_ports, led_that_is_set_late_while_its_port_goes_ends_dark) {
  lum_get_ctx()->platform_cbs.led_set_state = set_led_slowly;
  slow_state = LUM_LED_FAULT;
  std::thread slow([] { EXPECT_EQ(lum_optics_led_set_state(first, 0, LUM_LED_FAULT), 22u); });
  while (!is_slow) std::this_thread::yield();
  lum_controller_delete_done(delete_request({0x1001, 0x1002}));
  EXPECT_EQ(lum_ports_db_find_entry(first), nullptr);
  go_on = true;
  slow.join();
  EXPECT_EQ(client.led(first), LUM_LED_OFF);
}

TEST_F(created_ports, led_that_is_set_late_shows_what_is_recorded_of_the_port_created_again) {
  lum_get_ctx()->platform_cbs.led_set_state = set_led_slowly;
  slow_state = LUM_LED_FAULT;
  std::thread slow([] { EXPECT_EQ(lum_optics_led_set_state(first, 0, LUM_LED_FAULT), 22u); });
  while (!is_slow) std::this_thread::yield();
  lum_controller_delete_done(delete_request({0x1001, 0x1002}));
  add_port(first);
  EXPECT_EQ(lum_optics_led_set_state(first, 0, LUM_LED_NORMAL), 0u);
  go_on = true;
  slow.join();
  EXPECT_EQ(data_at(first).led_state, LUM_LED_NORMAL);
  EXPECT_EQ(client.led(first), LUM_LED_NORMAL);
}

TEST_F(created_ports, led_of_a_port_that_goes_while_it_is_set_is_not_found_any_more) {
  lum_get_ctx()->platform_cbs.led_set_state = set_led_slowly;
  slow_state = LUM_LED_FAULT;
  std::thread slow([] { EXPECT_EQ(lum_optics_led_set_state(first, 0, LUM_LED_FAULT), 22u); });
  while (!is_slow) std::this_thread::yield();
  EXPECT_EQ(lum_ports_db_remove_entry(first), 0u);
  clear_record();
  go_on = true;
  slow.join();
  EXPECT_THAT(traces(), testing::ElementsAre(error(153, "Port not found in DB rsip=0x30007\n")));
}

}  // namespace

}  // namespace led_races_test
