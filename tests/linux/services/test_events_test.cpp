#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "lum_linux/services.h"
#include "test_event.h"

namespace {

using namespace std::chrono_literals;
using lum_linux::test_event_send;

std::vector<std::string> texts;
std::promise<void> *entered = nullptr;
std::shared_future<void> released;
std::atomic<bool> handler_done = false;
cerrno nested = 0;

void note(void *, const char *text) { texts.emplace_back(text); }
void hang(void *, const char *) {
  entered->set_value();
  released.wait();
  handler_done = true;
}
void send_again(void *, const char *text) { nested = test_event_send("suite", 1, text); }
void close_own(void *, const char *) { test_event_close_tests("suite"); }

const test_event_record records[] = {{1, note}, {2, hang}, {3, send_again}, {4, close_own}};

class test_events : public testing::Test {
 protected:
  void SetUp() override {
    texts.clear();
    ASSERT_EQ(test_event_init_tests_v2("suite", 0, 1, records, 4), 0u);
  }
  void TearDown() override { test_event_close_tests("suite"); }
};

}  // namespace

TEST_F(test_events, reach_the_handler_of_their_test) {
  EXPECT_EQ(test_event_send("suite", 1, "one"), 0u);
  EXPECT_EQ(test_event_send("suite", 9, "two"), 2u);
  EXPECT_EQ(test_event_send("other", 1, "three"), 2u);
  EXPECT_EQ(texts, std::vector<std::string>{"one"});
  const auto suites = lum_linux::test_suites();
  ASSERT_EQ(suites.size(), 1u);
  EXPECT_EQ(suites[0].name, "suite");
  EXPECT_EQ(suites[0].test_ids, (std::vector<uint32_t>{1, 2, 3, 4}));
}

TEST_F(test_events, registering_refuses_what_makes_no_sense) {
  const test_event_record without_handler = {1, nullptr};
  EXPECT_EQ(test_event_init_tests_v2("suite", 0, 1, records, 1), 17u);
  EXPECT_EQ(test_event_init_tests_v2(nullptr, 0, 1, records, 1), 22u);
  EXPECT_EQ(test_event_init_tests_v2("", 0, 1, records, 1), 22u);
  EXPECT_EQ(test_event_init_tests_v2("b", 1, 1, records, 1), 22u);
  EXPECT_EQ(test_event_init_tests_v2("b", 0, 1, nullptr, 1), 22u);
  EXPECT_EQ(test_event_init_tests_v2("b", 0, 1, records, 0), 22u);
  EXPECT_EQ(test_event_init_tests_v2("b", 0, 1, &without_handler, 1), 22u);
  test_event_close_tests(nullptr);
  test_event_close_tests("never there");
}

TEST_F(test_events, a_closed_suite_hears_nothing_and_may_come_back) {
  test_event_close_tests("suite");
  EXPECT_EQ(test_event_send("suite", 1, "lost"), 2u);
  EXPECT_EQ(test_event_init_tests_v2("suite", 0, 1, records, 4), 0u);
  EXPECT_EQ(test_event_send("suite", 1, "heard"), 0u);
  EXPECT_EQ(texts, std::vector<std::string>{"heard"});
}

TEST_F(test_events, closing_waits_for_the_handler) {
  std::promise<void> started, go_on;
  entered = &started;
  released = go_on.get_future().share();
  handler_done = false;
  std::thread sender([] { EXPECT_EQ(test_event_send("suite", 2, ""), 0u); });
  started.get_future().wait();
  auto closed = std::async(std::launch::async, [] {
    test_event_close_tests("suite");
    return handler_done.load();
  });
  EXPECT_EQ(closed.wait_for(20ms), std::future_status::timeout);
  go_on.set_value();
  EXPECT_TRUE(closed.get());
  sender.join();
}

TEST_F(test_events, a_handler_neither_sends_nor_hangs_on_closing_its_suite) {
  EXPECT_EQ(test_event_send("suite", 3, "x"), 0u);
  EXPECT_EQ(nested, 35u);
  EXPECT_EQ(test_event_send("suite", 4, "x"), 0u);
  EXPECT_EQ(test_event_send("suite", 1, "x"), 2u);
}

TEST_F(test_events, come_one_at_a_time) {
  std::vector<std::thread> senders;
  for (int t = 0; t < 4; ++t) {
    senders.emplace_back([] {
      for (int i = 0; i < 100; ++i) EXPECT_EQ(test_event_send("suite", 1, "x"), 0u);
    });
  }
  for (std::thread &s : senders) s.join();
  EXPECT_EQ(texts.size(), 400u);
}
