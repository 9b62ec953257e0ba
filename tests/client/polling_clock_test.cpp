// When a polling cycle is taken for ended, and when the next one will be.
#include <gtest/gtest.h>

#include "node/polling_clock.h"

namespace {

using namespace std::chrono_literals;
using clock_type = std::chrono::steady_clock;

clock_type::time_point the_time{1h};

class PollingClock : public testing::Test {
 protected:
  static void pass(clock_type::duration time) { the_time += time; }

  // Visits of so many ports, each of which takes a second.
  void visit_all(uint32_t ports = 3) {
    for (uint32_t rsip = 1; rsip <= ports; ++rsip) {
      polling.visit(rsip);
      polling.enter();
      pass(1s);
      polling.leave();
    }
  }

  // From now on; absent where nothing is said.
  std::optional<clock_type::duration> next_end() {
    const auto end = polling.next_end();
    return end ? std::optional(*end - the_time) : std::nullopt;
  }

  lumd::polling_clock polling{[] { return the_time; }};
};

TEST_F(PollingClock, KnowsNoPaceBeforeTheSecondCycle) {
  EXPECT_FALSE(next_end());
  visit_all();
  EXPECT_FALSE(next_end());
  pass(5s);
  EXPECT_FALSE(next_end()) << "one cycle has no pace";
  visit_all();
  EXPECT_FALSE(next_end()) << "it may go on";
  pass(1s);
  EXPECT_TRUE(next_end());
}

// A cycle of 3 s and a pause of 5 s; that it has ended is known once it is quiet, which has its
// slack.
TEST_F(PollingClock, TellsTheNextEndByThePaceOfTheLastTwo) {
  visit_all();
  pass(5s);
  visit_all();
  pass(1s);
  EXPECT_EQ(next_end(), 5s + 3s + 300ms + 200ms - 1s);
  pass(2s);
  EXPECT_EQ(next_end(), 5s + 3s + 300ms + 200ms - 3s);
}

// A hanging module has made the second cycle later: the third comes as late behind it.
TEST_F(PollingClock, GoesByHowLateTheLastOneWas) {
  visit_all();
  pass(7s);
  visit_all();
  pass(1s);
  EXPECT_EQ(next_end(), 5s + 5s + 300ms + 200ms - 1s);
}

TEST_F(PollingClock, TellsNothingOfACycleThatIsRunningOrLate) {
  visit_all();
  pass(5s);
  visit_all();
  pass(5s);
  EXPECT_TRUE(next_end());
  polling.visit(1);
  EXPECT_FALSE(next_end()) << "it runs";
  polling.enter();
  pass(1min);
  EXPECT_FALSE(next_end()) << "a transfer hangs";
  polling.leave();
  pass(1s);
  EXPECT_TRUE(next_end());
  pass(1h);
  EXPECT_FALSE(next_end()) << "it should have come";
}

}  // namespace
