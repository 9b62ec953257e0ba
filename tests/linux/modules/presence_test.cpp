// Looks into cages whose bus hangs.
#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>

#include "hardware_helpers.h"

using namespace hardware_test;
using namespace lum_linux;
using namespace std::chrono_literals;

namespace {

// What a bus does that hangs, and how often it was asked.
struct bus {
  std::mutex mutex;
  std::condition_variable changed;
  bool hangs = true;
  int asked = 0;
  cerrno answer = module_ok;  // of a transfer

  void wait() {
    std::unique_lock held(mutex);
    ++asked;
    changed.notify_all();
    changed.wait(held, [this] { return !hangs; });
  }
  void recover() {
    const std::lock_guard held(mutex);
    hangs = false;
    changed.notify_all();
  }
  int count() {
    const std::lock_guard held(mutex);
    return asked;
  }
};

class memory_on final : public module_memory {
 public:
  explicit memory_on(std::shared_ptr<bus> on) : bus_(std::move(on)) {}
  cerrno read(uint32_t, uint32_t, std::span<uint8_t>) override {
    return bus_ ? bus_->answer : module_ok;
  }
  cerrno write(uint32_t, uint32_t, uint8_t) override { return module_ok; }
  bool present() override {
    if (bus_) bus_->wait();
    return true;
  }
  std::string location() const override { return "a bus"; }

 private:
  std::shared_ptr<bus> bus_;  // null: it answers at once
};

uint32_t cage(uint32_t number) { return make_rsip(0, slot, instance, number); }

// Cages of which the first `hanging` are on a bus that hangs.
std::unique_ptr<modules> rack_on(const std::shared_ptr<bus> &bad, uint32_t hanging, uint32_t all) {
  std::vector<module_placement> placements;
  for (uint32_t number = 0; number < all; ++number) {
    auto memory = std::make_unique<memory_on>(number < hanging ? bad : nullptr);
    placements.push_back({cage(number), module_backend::file, std::move(memory), {}, {}});
  }
  return std::make_unique<modules>(std::move(placements));
}

bool is_known(const modules &rack, uint32_t number) {
  return rack.status(cage(number))->known_at != std::chrono::steady_clock::time_point();
}

TEST(Presence, HangingBusesHoldUpNoLookIntoOtherCages) {
  const auto bad = std::make_shared<bus>();
  const auto rack = rack_on(bad, 3, 8);
  for (uint32_t number = 0; number < 8; ++number) {
    EXPECT_EQ(rack->present(cage(number)), number >= 3);
    EXPECT_EQ(is_known(*rack, number), number >= 3) << "nobody knows what is in cage " << number;
  }
  bad->recover();
}

TEST(Presence, HangingLookIsNotRepeatedUntilItEnds) {
  const auto bad = std::make_shared<bus>();
  const auto rack = rack_on(bad, 1, 2);
  rack->look();
  rack->look();
  EXPECT_EQ(bad->count(), 1);
  bad->recover();
  while (!is_known(*rack, 0)) std::this_thread::yield();
  rack->look();
  while (bad->count() < 2) rack->look();
  EXPECT_TRUE(rack->present(cage(0)));
}

TEST(Presence, RackGoesWhileALookHangs) {
  const auto bad = std::make_shared<bus>();
  rack_on(bad, 1, 2).reset();
  EXPECT_EQ(bad->count(), 1);
  bad->recover();
}

TEST(Presence, AModuleThatHasJustAnsweredIsNotAskedBesides) {
  const auto good = std::make_shared<bus>();
  good->recover();
  const auto rack = rack_on(good, 1, 1);
  const auto read = [&] {
    uint8_t byte = 0;
    return rack->read_byte(slot, instance, 0, 0, 0, &byte);
  };
  EXPECT_EQ(good->count(), 1);
  EXPECT_EQ(read(), module_ok);
  rack->look();
  EXPECT_EQ(good->count(), 1);
  good->answer = module_failing;
  EXPECT_EQ(read(), module_failing);
  rack->look();
  EXPECT_EQ(good->count(), 2) << "one that fails may have gone";
  good->answer = module_ok;
  EXPECT_EQ(read(), module_ok);
  rack->remove(cage(0));
  EXPECT_EQ(rack->insert(cage(0)), module_ok);
  EXPECT_EQ(good->count(), 3) << "whoever puts one in wants to know";
}

TEST(Presence, StatusTellsWhenItWasKnown) {
  const auto before = std::chrono::steady_clock::now();
  const auto rack = rack_on(nullptr, 0, 1);
  const auto first = rack->status(cage(0))->known_at;
  EXPECT_GE(first, before);
  rack->look();
  EXPECT_GT(rack->status(cage(0))->known_at, first);
}

}  // namespace
