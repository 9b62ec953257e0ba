// The interface manager when nothing goes wrong, and requests it cannot take.
#include "lum_linux/interface_manager.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "interface_manager/im_harness.h"

namespace lum_linux {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(InterfaceManager, AnswersACreateOnItsOwnThreadWithEncodedHandles) {
  im_harness node;
  ASSERT_EQ(node.create(7, {"Ots0_3_0_7_0", "Ots0_3_0_7_1"}), 0u);
  const completion reply = node.wait(1)[0];
  EXPECT_EQ(reply.tag, 7);
  EXPECT_EQ(reply.thread, "lum_im");
  EXPECT_EQ(reply.batch_error, 0u);
  EXPECT_EQ(reply.count, 2);
  EXPECT_THAT(reply.results, ElementsAre(0u, 0u));
  EXPECT_THAT(reply.names, ElementsAre("Ots0_3_0_7_0", "Ots0_3_0_7_1"));
  EXPECT_THAT(reply.handles, ElementsAre(0x08000001u, 0x08000002u));
}

TEST(InterfaceManager, ListsControllersByHandleAndFindsThemByEither) {
  im_harness node;
  node.created({"Ots0_1_0_2_0", "Ots0_1_0_1_0"});
  const auto controllers = node.im.controllers();
  ASSERT_EQ(controllers.size(), 2u);
  EXPECT_EQ(controllers[0].name, "Ots0_1_0_2_0");
  EXPECT_EQ(controllers[0].handle, 0x08000001u);
  EXPECT_FALSE(controllers[0].state) << "nobody has told it one";
  EXPECT_EQ(node.im.find(0x08000001)->name, "Ots0_1_0_2_0");
  EXPECT_FALSE(node.im.find(0x08000003));
  EXPECT_EQ(node.im.name_of(0x08000002), "Ots0_1_0_1_0");
  EXPECT_EQ(node.im.handle_of("Ots0_1_0_1_0"), 0x08000002u);
  EXPECT_FALSE(node.im.name_of(0));
  EXPECT_FALSE(node.im.handle_of("Ots0_1_0_3_0"));
}

TEST(InterfaceManager, GivesAnExistingNameItsHandleAgain) {
  im_harness node;
  const auto first = node.created({"a", "b"});
  const auto second = node.created({"b", "c", "a"});
  EXPECT_THAT(second, ElementsAre(first[1], 0x08000003u, first[0]));
  EXPECT_EQ(node.im.controllers().size(), 3u);
}

TEST(InterfaceManager, AnswersElementsWithoutANameAsBenign) {
  im_harness node;
  ASSERT_EQ(node.create(1, {"a", im_harness::null_name, ""}), 0u);
  const completion reply = node.wait(1)[0];
  EXPECT_EQ(reply.count, 3);
  EXPECT_THAT(reply.results, ElementsAre(0u, LUM_IM_ELEMENT_BENIGN, LUM_IM_ELEMENT_BENIGN));
  EXPECT_THAT(reply.names, ElementsAre("a", "", ""));
  EXPECT_FALSE(reply.handles[1]);
  EXPECT_EQ(node.im.controllers().size(), 1u);
}

TEST(InterfaceManager, DeletesByNameAndNeverGivesAHandleOutAgain) {
  im_harness node;
  const auto first = node.created({"a", "b"});
  ASSERT_EQ(node.remove(2, {"a", "unknown", ""}), 0u);
  const completion reply = node.wait(2)[1];
  EXPECT_THAT(reply.results, ElementsAre(0u, 2u, LUM_IM_ELEMENT_BENIGN));
  EXPECT_FALSE(node.im.name_of(first[0]));
  EXPECT_EQ(node.im.controllers().size(), 1u);
  EXPECT_THAT(node.created({"a"}), ElementsAre(0x08000003u));
}

TEST(InterfaceManager, UpdatesRecordTheStateAndIgnoreUnknownHandles) {
  im_harness node;
  const auto handles = node.created({"a", "b"});
  ASSERT_EQ(node.update(2, {handles[1], 0, 77}, 1), 0u);
  const completion reply = node.wait(2)[1];
  EXPECT_EQ(reply.count, 3);
  EXPECT_THAT(reply.results, ElementsAre(0u, 2u, 2u));
  EXPECT_THAT(reply.names, ElementsAre("b", "", ""));
  EXPECT_FALSE(node.im.controllers()[0].state);
  EXPECT_EQ(node.im.controllers()[1].state, 1u);
  EXPECT_EQ(node.im.controllers()[1].updates, 1u);
}

TEST(InterfaceManager, AnUpdateWithoutAStateLeavesItAsItWas) {
  im_harness node;
  const auto handles = node.created({"a"});
  node.update(2, handles, 1);
  node.update(3, handles, {});
  node.wait(3);
  EXPECT_EQ(node.im.controllers()[0].state, 1u);
  EXPECT_EQ(node.im.controllers()[0].updates, 2u);
}

TEST(InterfaceManager, AnswersInTheOrderOfTheRequests) {
  im_harness node;
  std::vector<int> sent;
  for (int i = 0; i < 50; ++i) {
    node.create(i, {"Ots0_0_0_" + std::to_string(i) + "_0"});
    sent.push_back(i);
  }
  EXPECT_EQ(tags(node.wait(50)), sent);
}

TEST(InterfaceManager, TakesABatchFromACompletion) {
  im_harness node;
  node.in_completion = [&](int tag) {
    if (tag == 1) {
      EXPECT_EQ(node.create(2, {"b"}), 0u);
      EXPECT_EQ(node.im.controllers().size(), 1u);
    }
  };
  node.create(1, {"a"});
  EXPECT_THAT(tags(node.wait(2)), ElementsAre(1, 2));
}

TEST(InterfaceManager, RefusesRequestsThatMakeNoSense) {
  im_harness node;
  const char *name = "a";
  const uint32_t handle = 1;
  const std::vector<uint8_t> payload(LUM_CREATE_ELEMENT_SIZE);
  const imca_completion complete = [](imca_reply_info_type *, void *) { FAIL(); };
  interface_manager &im = node.im;
  const auto create = [&](const char *const *names, const void *bytes, uint32_t elements,
                          uint32_t operation, uint32_t count, imca_completion end) {
    return im.request_by_name(names, 188, bytes, elements, operation, nullptr, count, end);
  };
  EXPECT_EQ(create(nullptr, payload.data(), 1, LUM_IM_CREATE, 1, complete), 22u);
  EXPECT_EQ(create(&name, nullptr, 1, LUM_IM_CREATE, 1, complete), 22u);
  EXPECT_EQ(create(&name, payload.data(), 1, LUM_IM_CREATE, 1, nullptr), 22u);
  EXPECT_EQ(create(&name, payload.data(), 1, LUM_IM_UPDATE, 1, complete), 22u);
  EXPECT_EQ(create(&name, payload.data(), 0, LUM_IM_CREATE, 0, complete), 22u);
  EXPECT_EQ(create(&name, payload.data(), 2, LUM_IM_CREATE, 1, complete), 22u);
  EXPECT_EQ(create(&name, payload.data(), 0x10000, LUM_IM_CREATE, 0x10000, complete), 22u);
  const auto update = [&](const uint32_t *handles, const void *bytes, uint32_t size,
                          uint32_t operation, uint32_t count, imca_completion end) {
    return im.update_by_handle(handles, 188, bytes, size, operation, nullptr, count, end);
  };
  const uint32_t size = LUM_UPDATE_ELEMENT_SIZE;
  EXPECT_EQ(update(nullptr, payload.data(), size, LUM_IM_UPDATE, 1, complete), 22u);
  EXPECT_EQ(update(&handle, nullptr, size, LUM_IM_UPDATE, 1, complete), 22u);
  EXPECT_EQ(update(&handle, payload.data(), size, LUM_IM_UPDATE, 1, nullptr), 22u);
  EXPECT_EQ(update(&handle, payload.data(), size, LUM_IM_CREATE, 1, complete), 22u);
  EXPECT_EQ(update(&handle, payload.data(), 0, LUM_IM_UPDATE, 0, complete), 22u);
  EXPECT_EQ(update(&handle, payload.data(), 1, LUM_IM_UPDATE, 1, complete), 22u);
  EXPECT_EQ(im.statistics().create_batches + im.statistics().update_batches, 0u);
}

TEST(InterfaceManager, CutsANameWithoutAnEnd) {
  im_harness node;
  node.created({std::string(200, 'x')});
  EXPECT_EQ(node.im.controllers()[0].name, std::string(LUM_IFNAME_SIZE, 'x'));
}

TEST(InterfaceManager, CountsWhatItDid) {
  im_harness node;
  const auto handles = node.created({"a", "b", ""});
  node.update(1, {handles[0]}, 1);
  node.remove(2, {"a", "b"});
  node.wait(3);
  ASSERT_TRUE(node.im.wait_idle(soon));
  const im_statistics statistics = node.im.statistics();
  EXPECT_EQ(statistics.create_batches, 1u);
  EXPECT_EQ(statistics.update_batches, 1u);
  EXPECT_EQ(statistics.delete_batches, 1u);
  EXPECT_EQ(statistics.elements, 6u);
  EXPECT_EQ(statistics.answered, 3u);
  EXPECT_EQ(statistics.failed_elements, 1u);
  EXPECT_EQ(statistics.refused + statistics.dropped + statistics.pending, 0u);
}

TEST(InterfaceManager, GoesRoundTheEndOfTheHandlesWithoutGivingOutZero) {
  im_harness node({.handle_base = 0xFFFFFFFE});
  EXPECT_THAT(node.created({"a", "b", "c"}), ElementsAre(0xFFFFFFFFu, 1u, 2u));
}

TEST(InterfaceManager, StopsWithoutAnsweringWhatWaits) {
  im_harness node;
  node.im.hold(true);
  node.create(1, {"a"});
  EXPECT_TRUE(node.im.stop());
  EXPECT_TRUE(node.im.stop());
  EXPECT_EQ(node.completed(), 0u);
  EXPECT_EQ(node.im.statistics().dropped, 1u);
  EXPECT_EQ(node.im.statistics().pending, 0u);
  EXPECT_EQ(node.create(2, {"b"}), 108u);
  EXPECT_EQ(node.update(2, {1}, 1), 108u);
}

TEST(InterfaceManager, StopsWithinItsBoundWhenACompletionHangs) {
  struct gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false, open = false, left = false;
  };
  const auto shared = std::make_shared<gate>();
  const auto set = [](gate &at, bool gate::*flag) {
    const std::lock_guard lock(at.mutex);
    at.*flag = true;
    at.changed.notify_all();
  };
  const auto await = [](gate &at, bool gate::*flag) {
    std::unique_lock lock(at.mutex);
    return at.changed.wait_for(lock, soon, [&] { return at.*flag; });
  };
  static std::function<void()> hang;
  hang = [=] {
    set(*shared, &gate::entered);
    await(*shared, &gate::open);
    set(*shared, &gate::left);
  };
  {
    interface_manager im;
    const char *name = "a";
    const std::vector<uint8_t> payload(LUM_CREATE_ELEMENT_SIZE);
    im.request_by_name(&name, 188, payload.data(), 1, LUM_IM_CREATE, nullptr, 1,
                       [](imca_reply_info_type *, void *) { hang(); });
    ASSERT_TRUE(await(*shared, &gate::entered));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_FALSE(im.stop(a_moment));
    EXPECT_LT(std::chrono::steady_clock::now() - before, soon);
    EXPECT_FALSE(im.stop(std::chrono::milliseconds(1)));
    set(*shared, &gate::open);
    EXPECT_TRUE(await(*shared, &gate::left));
    EXPECT_TRUE(im.stop());
  }
}

TEST(InterfaceManager, CanBeStoppedFromACompletion) {
  im_harness node;
  node.in_completion = [&](int) { EXPECT_TRUE(node.im.stop()); };
  node.create(1, {"a"});
  node.create(2, {"b"});
  EXPECT_THAT(tags(node.wait(1)), ElementsAre(1));
  EXPECT_TRUE(node.im.stop());
  EXPECT_EQ(node.completed(), 1u);
}

TEST(InterfaceManager, TakesBatchesFromManyThreadsWhileItIsLookedAt) {
  constexpr int threads = 4, rounds = 50;
  im_harness node;
  std::atomic<bool> done{false};
  std::thread looker([&] {
    while (!done) {
      node.im.controllers();
      node.im.statistics();
      node.im.name_of(0x08000001);
    }
  });
  std::vector<std::thread> senders;
  for (int t = 0; t < threads; ++t) {
    senders.emplace_back([&node, t] {
      for (int i = 0; i < rounds; ++i) {
        const std::string name = "t" + std::to_string(t) + "_" + std::to_string(i);
        EXPECT_EQ(node.create(i, {name, name + "b"}), 0u);
        EXPECT_EQ(node.remove(i, {name}), 0u);
      }
    });
  }
  for (auto &sender : senders) sender.join();
  node.wait(2 * threads * rounds);
  done = true;
  looker.join();
  EXPECT_EQ(node.im.controllers().size(), static_cast<size_t>(threads * rounds));
}

}  // namespace
}  // namespace lum_linux
