// Work that hangs in its lane, and work in the others.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "lum_linux/lanes.h"

using lum_linux::lane_verdict;
using lum_linux::lanes;

namespace {

// Work that ends when the test says so, and tells when it has begun.
class held_work {
 public:
  std::function<void()> work() {
    return [this] {
      begun_.set_value();
      released_.wait();
    };
  }
  void wait_for_begin() { begun_.get_future().wait(); }
  void release() { go_.set_value(); }

 private:
  std::promise<void> begun_;
  std::promise<void> go_;
  std::shared_future<void> released_{go_.get_future()};
};

TEST(Lanes, WorkOfALaneRunsInItsOrder) {
  lanes all("test", {8, 100});
  std::string order;
  std::promise<void> done;
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    ASSERT_EQ(all.post(7, [&order, letter] { order += letter; }), lane_verdict::taken);
  }
  ASSERT_EQ(all.post(7, [&] { done.set_value(); }), lane_verdict::taken);
  done.get_future().wait();
  EXPECT_EQ(order, "abcdefghijklmnopqrstuvwxyz");
}

TEST(Lanes, HangingWorkHoldsUpItsOwnLaneOnly) {
  held_work hanging;
  lanes all("test");
  ASSERT_EQ(all.post(1, hanging.work()), lane_verdict::taken);
  hanging.wait_for_begin();
  bool behind = false;
  std::promise<void> passed;
  ASSERT_EQ(all.post(1, [&] { behind = true; }), lane_verdict::taken);
  ASSERT_EQ(all.post(2, [&] { passed.set_value(); }), lane_verdict::taken);
  passed.get_future().wait();
  EXPECT_FALSE(behind);
  EXPECT_EQ(all.in_lane(1), 2u);
  hanging.release();
  while (all.in_lane(1) > 0) std::this_thread::yield();
  EXPECT_TRUE(behind);
}

TEST(Lanes, FullLaneTakesNoMore) {
  held_work hanging;
  lanes all("test", {8, 2});
  ASSERT_EQ(all.post(1, hanging.work()), lane_verdict::taken);
  hanging.wait_for_begin();
  EXPECT_EQ(all.post(1, [] {}), lane_verdict::taken);
  EXPECT_EQ(all.post(1, [] {}), lane_verdict::taken);
  EXPECT_EQ(all.post(1, [] {}), lane_verdict::full);
  EXPECT_EQ(all.post(2, [] {}), lane_verdict::taken);
  hanging.release();
  while (all.in_lane(1) > 0) std::this_thread::yield();
}

TEST(Lanes, WithoutAThreadNothingIsTaken) {
  held_work first;
  held_work second;
  lanes all("test", {2, 2});
  ASSERT_EQ(all.post(1, first.work()), lane_verdict::taken);
  ASSERT_EQ(all.post(2, second.work()), lane_verdict::taken);
  EXPECT_EQ(all.post(3, [] {}), lane_verdict::no_thread);
  first.release();
  while (all.post(3, [] {}) != lane_verdict::taken) std::this_thread::yield();
  second.release();
  while (all.in_lane(2) + all.in_lane(3) > 0) std::this_thread::yield();
}

TEST(Lanes, WhatWorkThrowsEndsThatWorkAlone) {
  lanes all("test");
  std::promise<void> done;
  ASSERT_EQ(all.post(1, [] { throw std::bad_alloc(); }), lane_verdict::taken);
  ASSERT_EQ(all.post(1, [&] { done.set_value(); }), lane_verdict::taken);
  done.get_future().wait();
}

TEST(Lanes, StoppedLanesDropWhatHasNotBegunAndTakeNoMore) {
  auto hanging = std::make_unique<held_work>();
  lanes all("test");
  bool ran = false;
  ASSERT_EQ(all.post(1, hanging->work()), lane_verdict::taken);
  hanging->wait_for_begin();
  ASSERT_EQ(all.post(1, [&] { ran = true; }), lane_verdict::taken);
  all.stop();
  EXPECT_EQ(all.post(2, [] {}), lane_verdict::stopped);
  EXPECT_EQ(all.in_lane(1), 1u);
  hanging->release();
  while (all.in_lane(1) > 0) std::this_thread::yield();
  EXPECT_FALSE(ran);
}

TEST(Lanes, ManyLanesFromManyThreadsLoseNothing) {
  constexpr int posters = 4;
  constexpr int pieces = 500;
  lanes all("test", {16, pieces});
  std::atomic<int> done{0};
  std::vector<std::thread> threads;
  for (int poster = 0; poster < posters; ++poster) {
    threads.emplace_back([&, poster] {
      for (int piece = 0; piece < pieces; ++piece) {
        const auto lane = static_cast<uint64_t>((poster + piece) % 8);
        while (all.post(lane, [&] { ++done; }) != lane_verdict::taken) std::this_thread::yield();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  while (done < posters * pieces) std::this_thread::yield();
}

}  // namespace
