// Modules that hang, and many threads at once: who waits, for how long, and who ends it.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;
using namespace std::chrono_literals;

fault_script hanging() {
  fault_script script;
  script.hang = true;
  return script;
}

class HangingModule : public testing::Test {
 protected:
  std::unique_ptr<modules> rack = simulated_rack(hanging());
  std::future<cerrno> transfer = std::async(std::launch::async, [this] { return read_one(*rack); });

  void SetUp() override {
    while (statistics(*rack).attempted == 0) std::this_thread::sleep_for(1ms);
  }
  void TearDown() override { rack->stop(); }
  bool is_waiting() { return transfer.wait_for(20ms) == std::future_status::timeout; }
};

TEST_F(HangingModule, TransferHangsUntilItIsReleased) {
  EXPECT_TRUE(is_waiting());
  EXPECT_GE(rack->status(rsip)->busy_for, 20ms);
  EXPECT_EQ(rack->release(rsip), 0u);
  EXPECT_EQ(transfer.get(), 0u);
  EXPECT_EQ(read_one(*rack), 0u) << "those to come do not hang either";
}

TEST_F(HangingModule, StopEndsTheWait) {
  EXPECT_TRUE(is_waiting());
  rack->stop();
  EXPECT_EQ(transfer.get(), 19u);
  EXPECT_EQ(read_one(*rack), 19u);
  EXPECT_FALSE(rack->present(rsip));
}

TEST_F(HangingModule, StopEndsTheWaitForTheLockToo) {
  auto second = std::async(std::launch::async, [this] { return read_one(*rack); });
  EXPECT_TRUE(is_waiting());
  rack->stop();
  EXPECT_EQ(transfer.get(), 19u);
  EXPECT_EQ(second.get(), 19u);
}

TEST_F(HangingModule, NewScriptEndsTheWait) {
  fault_script refusing;
  refusing.refuse_every = 1;
  EXPECT_EQ(rack->set_faults(rsip, refusing), 0u);
  EXPECT_EQ(transfer.get(), 0u) << "a transfer keeps the faults it has started with";
  EXPECT_EQ(read_one(*rack), 5u);
}

TEST_F(HangingModule, PullingTheModuleEndsTheWait) {
  EXPECT_EQ(rack->remove(rsip), 0u);
  EXPECT_EQ(transfer.get(), 19u);
}

TEST_F(HangingModule, LookingInFromOutsideGivesUp) {
  uint8_t value = 0;
  EXPECT_EQ(rack->peek(rsip, 0, 0, {&value, 1}), 16u);
}

TEST_F(HangingModule, PresenceIsAnsweredFromWhatIsKnown) {
  EXPECT_TRUE(rack->present(rsip));
  EXPECT_TRUE(is_waiting());
}

TEST_F(HangingModule, AnotherModuleIsNotPutInMeanwhile) {
  std::string error;
  EXPECT_EQ(rack->insert(rsip, MODULE_EXAMPLES "/iivi-new-map.toml", error), 16u);
  EXPECT_EQ(error, "the module's transfer under way does not end");
}

TEST(ModuleWaits, HangingModuleHoldsUpNoOther) {
  std::vector<module_placement> placements;
  for (const uint32_t at : {3u, 4u}) {
    placements.push_back({make_rsip(0, slot, instance, at),
                          module_backend::simulated,
                          make_simulated_memory("test", {numbered(640), {}}),
                          {},
                          at == 3 ? hanging() : fault_script()});
  }
  modules rack(std::move(placements));
  auto hung = std::async(std::launch::async, [&] { return read_one(rack); });
  uint8_t value = 0;
  EXPECT_EQ(rack.read_byte(slot, instance, 4, 0, 0, &value), 0u);
  rack.stop();
  EXPECT_EQ(hung.get(), 19u);
}

TEST(ModuleWaits, StopEndsADelay) {
  fault_script slow;
  slow.delay = 60s;
  const auto rack = simulated_rack(slow);
  auto transfer = std::async(std::launch::async, [&] { return read_one(*rack); });
  while (statistics(*rack).attempted == 0) std::this_thread::sleep_for(1ms);
  rack->stop();
  EXPECT_EQ(transfer.get(), 19u);
}

// Everything that can be done to a module at once; the sanitizers watch.
TEST(ModuleWaits, EverythingAtOnce) {
  const auto rack = simulated_rack();
  std::atomic<bool> is_over{false};
  std::vector<std::thread> threads;
  for (uint8_t value = 1; value <= 3; ++value) {
    threads.emplace_back([&, value] {
      while (!is_over) rack->write_byte(slot, instance, port, 2, 144, value);
    });
  }
  threads.emplace_back([&] {
    std::string error;
    fault_script spoiling;
    spoiling.flip_percent = 10;
    spoiling.refuse_percent = 10;
    spoiling.remove_after = 5;
    spoiling.insert_after = 3;
    while (!is_over) {
      rack->set_faults(rsip, spoiling);
      rack->remove(rsip);
      rack->insert(rsip);
      rack->insert(rsip, MODULE_EXAMPLES "/iivi-new-map.toml", error);
      rack->release(rsip);
    }
  });
  threads.emplace_back([&] {
    bytes page(128);
    while (!is_over) {
      rack->status(rsip);
      rack->peek(rsip, 1, 128, page);
      rack->poke(rsip, 0, 10, 2);
    }
  });
  bytes buffer(128);
  uint64_t answered = 0;
  for (const auto end = std::chrono::steady_clock::now() + 300ms;
       std::chrono::steady_clock::now() < end;) {
    const cerrno rc = rack->read_block(slot, instance, port, 2, 128, 128, buffer.data());
    EXPECT_TRUE(rc == 0 || rc == 5 || rc == 19) << rc;
    answered += rc == 0 ? 1 : 0;
  }
  is_over = true;
  for (auto &thread : threads) thread.join();
  EXPECT_GT(answered, 0u);
  const module_statistics counted = statistics(*rack);
  EXPECT_GE(counted.attempted, counted.failed);
}

}  // namespace
