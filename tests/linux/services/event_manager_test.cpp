#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "event_manager.h"
#include "lum_linux/services.h"

namespace {

using namespace std::chrono_literals;
using lum_linux::event_manager_create;
using lum_linux::event_manager_destroy;
using lum_linux::event_manager_drain;

struct taken_pulse {
  event_manager manager;
  uint32_t pulse;
  uint64_t value;
  std::thread::id thread;
  bool operator==(const taken_pulse &) const = default;
};

std::mutex taken_lock;
std::vector<taken_pulse> taken;
std::atomic<int> inside = 0;
std::atomic<uint64_t> overlaps = 0;
std::promise<void> *entered = nullptr;
std::shared_future<void> released;

void note(event_manager manager, uint32_t pulse, uint64_t value) {
  if (inside.fetch_add(1) != 0) ++overlaps;
  {
    const std::lock_guard hold(taken_lock);
    taken.push_back({manager, pulse, value, std::this_thread::get_id()});
  }
  --inside;
}

void hang(event_manager, uint32_t, uint64_t) {
  entered->set_value();
  released.wait();
}

std::vector<uint64_t> values() {
  const std::lock_guard hold(taken_lock);
  std::vector<uint64_t> all;
  for (const auto &t : taken) all.push_back(t.value);
  return all;
}

class event_managers : public testing::Test {
 protected:
  void SetUp() override {
    taken.clear();
    manager = event_manager_create("evm of the test process");
    ASSERT_NE(manager, 0u);
  }
  void TearDown() override { event_manager_destroy(manager); }
  event_manager manager = 0;
};

}  // namespace

TEST_F(event_managers, run_the_handler_on_their_own_named_thread) {
  const uint32_t pulse = event_async_attach(manager, 128, note, 0);
  ASSERT_NE(pulse, EVENT_PULSE_NONE);
  EXPECT_EQ(event_send_async(manager, pulse, 42), 0u);
  ASSERT_TRUE(event_manager_drain(manager, 5s));
  ASSERT_EQ(taken.size(), 1u);
  EXPECT_EQ(taken[0].manager, manager);
  EXPECT_EQ(taken[0].pulse, pulse);
  EXPECT_EQ(taken[0].value, 42u);
  EXPECT_NE(taken[0].thread, std::this_thread::get_id());
}

TEST_F(event_managers, keep_the_order_of_pulses_of_one_priority) {
  const uint32_t pulse = event_async_attach(manager, 0, note, 0);
  std::vector<uint64_t> expected;
  for (uint64_t v = 0; v < 500; ++v) {
    ASSERT_EQ(event_send_async(manager, pulse, v), 0u);
    expected.push_back(v);
  }
  ASSERT_TRUE(event_manager_drain(manager, 5s));
  EXPECT_EQ(values(), expected);
}

TEST_F(event_managers, let_a_higher_priority_overtake) {
  std::promise<void> started, go_on;
  entered = &started;
  released = go_on.get_future().share();
  const uint32_t block = event_async_attach(manager, 255, hang, 0);
  const uint32_t low = event_async_attach(manager, 1, note, 0);
  const uint32_t high = event_async_attach(manager, 200, note, 0);
  event_send_async(manager, block, 0);
  started.get_future().wait();
  event_send_async(manager, low, 1);
  event_send_async(manager, low, 2);
  event_send_async(manager, high, 3);
  EXPECT_FALSE(event_manager_drain(manager, 10ms));
  go_on.set_value();
  ASSERT_TRUE(event_manager_drain(manager, 5s));
  EXPECT_EQ(values(), (std::vector<uint64_t>{3, 1, 2}));
}

TEST_F(event_managers, a_handler_may_send_and_its_pulse_comes_later) {
  static uint32_t pulse;
  pulse = event_async_attach(
      manager, 1,
      [](event_manager m, uint32_t p, uint64_t value) {
        if (value > 0) {
          EXPECT_EQ(event_send_async(m, pulse, value - 1), 0u);
        }
        note(m, p, value);
      },
      0);
  event_send_async(manager, pulse, 3);
  ASSERT_TRUE(event_manager_drain(manager, 5s));
  EXPECT_EQ(values(), (std::vector<uint64_t>{3, 2, 1, 0}));
}

TEST_F(event_managers, never_run_two_handlers_at_once_and_lose_no_pulse) {
  const uint32_t one = event_async_attach(manager, 1, note, 0);
  const uint32_t two = event_async_attach(manager, 2, note, 0);
  std::vector<std::thread> senders;
  for (int t = 0; t < 4; ++t) {
    senders.emplace_back([&, t] {
      for (uint64_t v = 0; v < 500; ++v) event_send_async(manager, t % 2 == 0 ? one : two, v);
    });
  }
  for (std::thread &s : senders) s.join();
  ASSERT_TRUE(event_manager_drain(manager, 20s));
  EXPECT_EQ(values().size(), 2000u);
  EXPECT_EQ(overlaps.load(), 0u);
}

TEST_F(event_managers, refuse_what_makes_no_sense) {
  EXPECT_EQ(event_async_attach(manager, 256, note, 0), EVENT_PULSE_NONE);
  EXPECT_EQ(event_async_attach(manager, 1, nullptr, 0), EVENT_PULSE_NONE);
  EXPECT_EQ(event_async_attach(manager, 1, note, 1), EVENT_PULSE_NONE);
  EXPECT_EQ(event_async_attach(0, 1, note, 0), EVENT_PULSE_NONE);
  EXPECT_EQ(event_async_attach(manager + 1000, 1, note, 0), EVENT_PULSE_NONE);
  EXPECT_EQ(event_send_async(manager, 0, 0), 22u);
  EXPECT_EQ(event_send_async(manager, 77, 0), 22u);
  EXPECT_EQ(event_send_async(manager, EVENT_PULSE_NONE, 0), 22u);
  EXPECT_EQ(event_send_async(0, 1, 0), 22u);
  EXPECT_FALSE(event_manager_drain(0, 1ms));
  EXPECT_FALSE(event_manager_destroy(0));
}

TEST_F(event_managers, have_a_local_handle_while_they_live) {
  EXPECT_NE(event_manager_levm_get(manager), nullptr);
  EXPECT_EQ(event_manager_levm_get(0), nullptr);
  const event_manager other = event_manager_create("other");
  EXPECT_NE(event_manager_levm_get(other), event_manager_levm_get(manager));
  EXPECT_TRUE(event_manager_destroy(other));
  EXPECT_EQ(event_manager_levm_get(other), nullptr);
  EXPECT_EQ(event_send_async(other, 1, 0), 22u);
  EXPECT_FALSE(event_manager_destroy(other));
}

TEST_F(event_managers, end_within_their_bound_while_a_handler_hangs) {
  std::promise<void> started, go_on;
  entered = &started;
  released = go_on.get_future().share();
  const event_manager stuck = event_manager_create("stuck");
  const uint32_t block = event_async_attach(stuck, 1, hang, 0);
  const uint32_t later = event_async_attach(stuck, 1, note, 0);
  event_send_async(stuck, block, 0);
  started.get_future().wait();
  event_send_async(stuck, later, 5);
  EXPECT_FALSE(event_manager_destroy(stuck, 20ms));
  go_on.set_value();
  std::this_thread::sleep_for(50ms);
  EXPECT_TRUE(values().empty());
}

TEST_F(event_managers, may_be_ended_by_their_own_handler) {
  static std::promise<bool> ended;
  const event_manager own = event_manager_create("own");
  const uint32_t pulse = event_async_attach(
      own, 1,
      [](event_manager m, uint32_t, uint64_t) {
        EXPECT_FALSE(event_manager_drain(m, 1ms));
        ended.set_value(event_manager_destroy(m));
      },
      0);
  event_send_async(own, pulse, 0);
  EXPECT_TRUE(ended.get_future().get());
  EXPECT_EQ(event_manager_levm_get(own), nullptr);
}
