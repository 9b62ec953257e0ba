// The interface manager restarting while batches wait.
#include <gmock/gmock.h>

#include <thread>

#include "interface_manager/im_harness.h"

namespace lum_linux {
namespace {

using pending = interface_manager::pending;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ImRestart, ForgetsEverythingAndGivesNewHandles) {
  im_harness node;
  const auto before = node.created({"a", "b"});
  EXPECT_TRUE(node.im.restart());
  EXPECT_THAT(node.im.controllers(), IsEmpty());
  EXPECT_FALSE(node.im.name_of(before[0]));
  EXPECT_EQ(node.im.statistics().restarts, 1u);
  EXPECT_THAT(node.created({"a", "b"}), ElementsAre(0x08100001u, 0x08100002u));
  EXPECT_TRUE(node.im.restart(pending::drop));
  EXPECT_THAT(node.created({"b"}), ElementsAre(0x08200001u));
}

TEST(ImRestart, AnswersWhatWaitsFirst) {
  im_harness node;
  node.im.hold(true);
  node.im.set_delay(std::chrono::hours(1), std::chrono::hours(1));
  node.create(1, {"a"});
  node.create(2, {"b"});
  EXPECT_TRUE(node.im.restart(pending::answer));
  const auto replies = node.wait(2);
  EXPECT_THAT(tags(replies), ElementsAre(1, 2));
  EXPECT_EQ(replies[1].handles[0], 0x08000002u);
  EXPECT_THAT(node.im.controllers(), IsEmpty());
}

TEST(ImRestart, DropsWhatWaits) {
  im_harness node;
  node.im.hold(true);
  node.create(1, {"a"});
  EXPECT_TRUE(node.im.restart(pending::drop));
  node.im.hold(false);
  node.create(2, {"b"});
  EXPECT_THAT(tags(node.wait(1)), ElementsAre(2));
  EXPECT_TRUE(node.im.wait_idle(soon));
  EXPECT_EQ(node.completed(), 1u);
  EXPECT_EQ(node.im.statistics().dropped, 1u);
}

TEST(ImRestart, FromACompletionFollowsIt) {
  im_harness node;
  node.in_completion = [&](int tag) {
    if (tag == 1) {
      EXPECT_TRUE(node.im.restart());
    }
  };
  node.create(1, {"a"});
  node.wait(1);
  node.create(2, {"a"});
  EXPECT_EQ(node.wait(2)[1].handles[0], 0x08100001u);
}

TEST(ImRestart, GivesUpWaitingForACompletionThatHangs) {
  im_harness node;
  std::mutex gate;
  std::unique_lock closed(gate);
  node.in_completion = [&](int) { const std::lock_guard wait(gate); };
  node.create(1, {"a"});
  node.create(2, {"b"});
  EXPECT_FALSE(node.im.restart(pending::answer, a_moment));
  closed.unlock();
  node.wait(2);
  ASSERT_TRUE(node.im.restart());
  EXPECT_THAT(node.im.controllers(), IsEmpty());
}

TEST(ImRestart, AfterTheStopForgetsAllTheSame) {
  im_harness node;
  node.created({"a"});
  EXPECT_TRUE(node.im.stop());
  EXPECT_EQ(node.im.controllers().size(), 1u);
  EXPECT_TRUE(node.im.restart());
  EXPECT_THAT(node.im.controllers(), IsEmpty());
}

TEST(ImRestart, StartsOverWhenTheHandlesEnd) {
  im_harness node({.handle_base = 0xFFF00000});
  node.created({"a"});
  EXPECT_TRUE(node.im.restart());
  EXPECT_THAT(node.created({"a"}), ElementsAre(0xFFF00001u));
}

}  // namespace
}  // namespace lum_linux
