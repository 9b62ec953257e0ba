// Work that is done over and over, and a thread that is left behind with it.
#include "lum_linux/periodic.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <future>
#include <memory>
#include <stdexcept>

namespace {

using lum_linux::periodic;
using std::chrono::milliseconds;

constexpr std::chrono::hours never(1);
constexpr milliseconds soon(5000);

// Counts its runs, and tells of the one that is waited for.
struct rounds {
  explicit rounds(int wanted) : wanted_(wanted) {}
  void operator()() {
    if (++count == wanted_) come_.set_value();
  }
  bool come() { return come_.get_future().wait_for(soon) == std::future_status::ready; }
  std::atomic<int> count{0};

 private:
  const int wanted_;
  std::promise<void> come_;
};

TEST(Periodic, RunsAtOnceAndStopsBetweenTwoRuns) {
  rounds seen(1);
  periodic thread("test", never, [&] { seen(); });
  EXPECT_TRUE(seen.come());
  EXPECT_TRUE(thread.stop(soon));
  EXPECT_TRUE(thread.stop());
  EXPECT_EQ(seen.count, 1);
}

TEST(Periodic, RunsAgain) {
  rounds seen(3);
  periodic thread("test", milliseconds(1), [&] { seen(); });
  EXPECT_TRUE(seen.come());
  EXPECT_TRUE(thread.stop(soon));
}

TEST(Periodic, WaitsBeforeItsFirstRunAndStopsMeanwhile) {
  rounds seen(1);
  periodic thread(
      "test", milliseconds(1), [&] { seen(); }, never);
  EXPECT_TRUE(thread.stop(soon));
  EXPECT_EQ(seen.count, 0);
}

TEST(Periodic, RestsForAsLongAsItsWorkSays) {
  rounds seen(3);
  periodic thread(
      "test",
      [&] {
        seen();
        return seen.count < 3 ? milliseconds(1) : milliseconds(never);
      },
      never);
  EXPECT_TRUE(seen.come());
  EXPECT_TRUE(thread.stop(soon));
  EXPECT_EQ(seen.count, 3);
}

TEST(Periodic, RestsOtherwiseWhereItsWorkThrows) {
  rounds seen(2);
  periodic thread(
      "test",
      [&]() -> milliseconds {
        seen();
        throw std::runtime_error("no memory");
      },
      milliseconds(1));
  EXPECT_TRUE(seen.come());
  EXPECT_TRUE(thread.stop(soon));
}

TEST(Periodic, IsHastenedOutOfItsRestAndBeforeItsFirstRun) {
  rounds seen(1);
  rounds again(2);
  periodic thread(
      "test", never,
      [&] {
        seen();
        again();
      },
      never);
  thread.hasten();
  EXPECT_TRUE(seen.come());
  thread.hasten();
  EXPECT_TRUE(again.come());
  EXPECT_TRUE(thread.stop(soon));
}

TEST(Periodic, RunsOnceMoreWhenHastenedDuringARun) {
  std::promise<void> begun, go;
  rounds seen(2);
  periodic thread("test", never, [&] {
    if (seen.count == 0) {
      begun.set_value();
      go.get_future().wait();
    }
    seen();
  });
  begun.get_future().wait();
  thread.hasten();
  go.set_value();
  EXPECT_TRUE(seen.come());
  EXPECT_TRUE(thread.stop(soon));
}

TEST(Periodic, GoesOnAfterWorkThatThrows) {
  rounds seen(3);
  periodic thread("test", milliseconds(1), [&] {
    seen();
    throw std::runtime_error("no memory");
  });
  EXPECT_TRUE(seen.come());
  EXPECT_TRUE(thread.stop(soon));
}

TEST(Periodic, TakesNoSignalsAndLeavesThemToItsMaker) {
  std::promise<sigset_t> blocked;
  periodic thread("test", never, [&] {
    sigset_t set;
    pthread_sigmask(SIG_SETMASK, nullptr, &set);
    blocked.set_value(set);
  });
  const sigset_t inside = blocked.get_future().get();
  EXPECT_EQ(sigismember(&inside, SIGTERM), 1);
  sigset_t outside;
  pthread_sigmask(SIG_SETMASK, nullptr, &outside);
  EXPECT_EQ(sigismember(&outside, SIGTERM), 0);
}

// What the work uses is the thread's own, for it outlives the object.
TEST(Periodic, IsLeftBehindWhileItsWorkHangs) {
  struct hold {
    std::promise<void> begun, go, gone;
  };
  const auto held = std::make_shared<hold>();
  {
    periodic thread("test", never, [held] {
      held->begun.set_value();
      held->go.get_future().wait();
      held->gone.set_value();
    });
    held->begun.get_future().wait();
    EXPECT_FALSE(thread.stop(milliseconds(1)));
  }
  held->go.set_value();
  held->gone.get_future().wait();
}

}  // namespace
