// Everything that the interface manager can be asked to do wrong.
#include <gmock/gmock.h>

#include <future>
#include <mutex>
#include <thread>

#include "interface_manager/im_harness.h"

namespace lum_linux {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ImFaults, RefusesTheNextBatchesAndNeverCompletesThem) {
  im_harness node;
  node.im.refuse_next(2, 11);
  EXPECT_EQ(node.create(1, {"a"}), 11u);
  EXPECT_EQ(node.update(2, {1}, 1), 11u);
  EXPECT_EQ(node.create(3, {"a"}), 0u);
  EXPECT_THAT(tags(node.wait(1)), ElementsAre(3));
  EXPECT_EQ(node.im.statistics().refused, 2u);
  EXPECT_EQ(node.im.statistics().create_batches, 1u);
}

TEST(ImFaults, DropsTheNextBatches) {
  im_harness node;
  node.im.drop_next(1);
  EXPECT_EQ(node.create(1, {"a"}), 0u);
  EXPECT_EQ(node.create(2, {"b"}), 0u);
  EXPECT_THAT(tags(node.wait(1)), ElementsAre(2));
  EXPECT_TRUE(node.im.wait_idle(soon));
  EXPECT_FALSE(node.im.handle_of("a"));
  EXPECT_EQ(node.im.statistics().dropped, 1u);
  EXPECT_TRUE(node.im.stop());
  EXPECT_EQ(node.completed(), 1u);
}

TEST(ImFaults, FailsAWholeBatch) {
  im_harness node;
  node.im.fail_next(1, 5);
  node.create(1, {"a", "b"});
  const completion reply = node.wait(1)[0];
  EXPECT_EQ(reply.batch_error, 5u);
  EXPECT_EQ(reply.count, 2);
  EXPECT_THAT(reply.results, Each(0u));
  EXPECT_THAT(reply.names, ElementsAre("a", "b"));
  EXPECT_THAT(reply.data, Each(IsEmpty()));
  EXPECT_THAT(node.im.controllers(), IsEmpty());
}

TEST(ImFaults, AnswersEmpty) {
  im_harness node;
  node.im.empty_next(1);
  node.create(1, {"a", "b"});
  const completion reply = node.wait(1)[0];
  EXPECT_EQ(reply.batch_error, 0u);
  EXPECT_EQ(reply.count, 0);
  EXPECT_THAT(node.im.controllers(), IsEmpty());
}

TEST(ImFaults, FailsElementsByNameUntilTakenBack) {
  im_harness node;
  node.im.fail_name("b", LUM_IM_ELEMENT_BENIGN);
  node.im.fail_name("c", 13);
  node.create(1, {"a", "b", "c"});
  EXPECT_THAT(node.wait(1)[0].results, ElementsAre(0u, LUM_IM_ELEMENT_BENIGN, 13u));
  EXPECT_EQ(node.im.controllers().size(), 1u);
  node.im.fail_name("b", 0);
  node.create(2, {"a", "b", "c"});
  EXPECT_THAT(node.wait(2)[1].results, ElementsAre(0u, 0u, 13u));
  EXPECT_EQ(node.im.statistics().failed_elements, 3u);
}

TEST(ImFaults, FailsEveryNthElementOfAnyOperation) {
  im_harness node;
  const auto handles = node.created({"a", "b"});
  node.im.fail_every(3, 16);
  node.create(1, {"c", "d", "e", "f"});
  EXPECT_THAT(node.wait(2)[1].results, ElementsAre(0u, 0u, 16u, 0u));
  node.update(2, {handles[0], handles[1]}, 1);
  EXPECT_THAT(node.wait(3)[2].results, ElementsAre(0u, 16u));
  EXPECT_FALSE(node.im.controllers()[1].state) << "none has reached it";
  node.remove(3, {"a", "b", "c"});
  EXPECT_THAT(node.wait(4)[3].results, ElementsAre(0u, 0u, 16u));
  node.im.fail_every(0, 16);
  node.remove(4, {"c", "d", "f"});
  EXPECT_THAT(node.wait(5)[4].results, ElementsAre(0u, 0u, 0u));
}

TEST(ImFaults, MalformsCreateReplies) {
  for (const im_malformation kind :
       {im_malformation::garbage, im_malformation::truncated, im_malformation::missing_member}) {
    im_harness node;
    node.im.malform_next(1, kind);
    node.remove(0, {"x"});
    node.create(1, {"a", "b"});
    const completion reply = node.wait(2)[1];
    EXPECT_THAT(reply.results, ElementsAre(0u, 0u));
    EXPECT_FALSE(reply.data[0].empty());
    EXPECT_FALSE(reply.handles[0]) << static_cast<int>(kind);
    EXPECT_FALSE(reply.handles[1]) << static_cast<int>(kind);
    EXPECT_THAT(node.created({"a"}), ElementsAre(0x08000001u));
  }
}

TEST(ImFaults, LeavesTheDataOfASuccessfulElementOut) {
  im_harness node;
  node.im.malform_next(1, im_malformation::absent);
  node.create(1, {"a"});
  const completion reply = node.wait(1)[0];
  EXPECT_THAT(reply.results, ElementsAre(0u));
  EXPECT_THAT(reply.data, ElementsAre(IsEmpty()));
}

TEST(ImFaults, ABatchMeetsOneFaultAtMost) {
  im_harness node;
  node.im.refuse_next(1, 11);
  node.im.drop_next(1);
  node.im.fail_next(1, 5);
  node.im.empty_next(1);
  node.im.malform_next(1, im_malformation::garbage);
  EXPECT_EQ(node.create(1, {"a"}), 11u);
  for (int tag = 2; tag < 7; ++tag) EXPECT_EQ(node.create(tag, {"a"}), 0u);
  const auto replies = node.wait(4);
  EXPECT_THAT(tags(replies), ElementsAre(3, 4, 5, 6));
  EXPECT_EQ(replies[0].batch_error, 5u);
  EXPECT_EQ(replies[1].count, 0);
  EXPECT_FALSE(replies[2].handles[0]);
  EXPECT_EQ(replies[3].handles[0], 0x08000001u);
}

TEST(ImFaults, DelaysEveryReply) {
  im_harness node;
  node.im.set_delay(a_moment, a_moment);
  const auto before = steady_clock::now();
  node.create(1, {"a"});
  EXPECT_EQ(node.im.statistics().pending, 1u);
  EXPECT_THAT(node.im.controllers(), IsEmpty());
  EXPECT_FALSE(node.im.wait_idle(milliseconds(1)));
  node.wait(1);
  EXPECT_GE(steady_clock::now() - before, a_moment);
}

TEST(ImFaults, DelaysByARandomTimeAndKeepsTheOrder) {
  im_harness node;
  node.im.set_delay(milliseconds(0), milliseconds(10), 3);
  std::vector<int> sent;
  for (int i = 0; i < 20; ++i) {
    node.create(i, {"a"});
    sent.push_back(i);
  }
  EXPECT_EQ(tags(node.wait(20)), sent);
}

TEST(ImFaults, HoldsAnswersUntilLetGo) {
  im_harness node;
  node.im.hold(true);
  node.create(1, {"a"});
  node.create(2, {"b"});
  EXPECT_FALSE(node.im.wait_idle(a_moment));
  EXPECT_EQ(node.completed(), 0u);
  node.im.hold(false);
  EXPECT_THAT(tags(node.wait(2)), ElementsAre(1, 2));
}

TEST(ImFaults, AnswersOutOfOrder) {
  im_harness node;
  node.im.set_out_of_order(true);
  node.im.hold(true);
  for (int tag = 1; tag <= 3; ++tag) node.create(tag, {"a"});
  std::this_thread::sleep_for(a_moment);
  node.im.hold(false);
  EXPECT_THAT(tags(node.wait(3)), ElementsAre(3, 2, 1));
}

TEST(ImFaults, GathersBatchesForItsWindowWhenOutOfOrder) {
  im_harness node({.out_of_order = true});
  node.im.set_out_of_order(true, 4 * a_moment);
  node.create(1, {"a"});
  node.create(2, {"b"});
  EXPECT_THAT(tags(node.wait(2)), ElementsAre(2, 1));
}

TEST(ImFaults, BehavesAgainWhenToldTo) {
  im_harness node;
  node.im.refuse_next(1, 1);
  node.im.drop_next(1);
  node.im.fail_next(1, 1);
  node.im.empty_next(1);
  node.im.malform_next(1, im_malformation::garbage);
  node.im.fail_name("a", 1);
  node.im.fail_every(1, 1);
  node.im.set_delay(std::chrono::hours(1), std::chrono::hours(2));
  node.im.set_out_of_order(true, std::chrono::hours(1));
  node.im.hold(true);
  node.im.behave();
  EXPECT_THAT(node.created({"a"}), ElementsAre(0x08000001u));
}

TEST(ImAccounts, TellWhatBecameOfEachBatchOfTheirThread) {
  im_harness node;
  node.created({"known"});
  interface_manager::account mine(node.im);
  std::thread([&] { node.create(9, {"nobody's"}); }).join();
  node.im.refuse_next(1, 11);
  node.create(1, {"a"});
  node.im.drop_next(1);
  node.create(2, {"a"});
  node.im.fail_next(1, 5);
  node.create(3, {"a"});
  node.im.empty_next(1);
  node.create(4, {"a"});
  node.im.fail_name("b", 28);
  node.create(5, {"a", "b"});
  node.update(6, {0x08000001, 77}, 1);
  node.remove(7, {"known", im_harness::null_name});
  node.im.wait_idle(soon);
  node.im.hold(true);
  node.create(8, {"c"});
  mine.end();
  node.create(9, {"d"});

  const auto batches = mine.batches();
  ASSERT_EQ(batches.size(), 8u);
  EXPECT_EQ(batches[0].state, im_batch_state::refused);
  EXPECT_EQ(batches[0].code, 11u);
  EXPECT_EQ(batches[1].state, im_batch_state::dropped);
  EXPECT_EQ(batches[2].state, im_batch_state::answered);
  EXPECT_EQ(batches[2].code, 5u);
  EXPECT_TRUE(batches[3].empty);
  EXPECT_EQ(batches[4].code, 28u);
  ASSERT_EQ(batches[4].failed.size(), 1u);
  EXPECT_EQ(batches[4].failed[0].name, "b");
  ASSERT_EQ(batches[5].failed.size(), 1u);
  EXPECT_EQ(batches[5].failed[0].name, "") << "a handle that it does not know";
  EXPECT_EQ(batches[6].state, im_batch_state::answered);
  EXPECT_EQ(batches[6].code, 0u) << "an element without a name is nobody's failure";
  EXPECT_EQ(batches[6].count, 2u);
  EXPECT_EQ(batches[7].state, im_batch_state::waiting);
  node.im.restart(interface_manager::pending::drop);
  EXPECT_EQ(mine.batches()[7].state, im_batch_state::dropped);
}

TEST(ImFaults, StartsOutWithTheDelayItWasGiven) {
  im_harness node({.delay_min = a_moment, .delay_max = a_moment});
  const auto before = steady_clock::now();
  node.created({"a"});
  EXPECT_GE(steady_clock::now() - before, a_moment);
}

TEST(ImAccounts, TellOfABatchWhoseCompletionStillRuns) {
  im_harness node;
  std::mutex gate;
  std::unique_lock closed(gate);
  std::promise<void> begun;
  node.in_completion = [&](int) {
    begun.set_value();
    const std::lock_guard wait(gate);
  };
  interface_manager::account mine(node.im);
  node.im.fail_next(1, 5);
  node.create(1, {"a"});
  begun.get_future().wait();
  EXPECT_EQ(mine.batches()[0].state, im_batch_state::completing);
  EXPECT_EQ(mine.batches()[0].code, 5u);
  closed.unlock();
  ASSERT_TRUE(node.im.wait_idle(soon));
  EXPECT_EQ(mine.batches()[0].state, im_batch_state::answered);
}

}  // namespace
}  // namespace lum_linux
