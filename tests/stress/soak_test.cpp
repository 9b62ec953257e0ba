// Many hours of polling, five seconds a cycle, over modules that fail, vanish, upgrade and return.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "crew.h"
#include "lum_linux/services.h"
#include "memory_use.h"
#include "node.h"
#include "seams.h"
#include "settings.h"
#include "soak_model.h"

namespace {

using namespace std::chrono_literals;
using stress::below;
using stress::node;
using stress::port_place;

constexpr auto cycle_bound = 60s;
constexpr uint32_t cycles_per_feed = 8;
constexpr int64_t allowed_growth = 64 * 1024;

struct soak_counts {
  uint64_t failing = 0, vanished = 0, returned = 0, upgrades = 0, hangs = 0, changed = 0;
};

// The node's client: makes things happen to modules, and tells the library of cages as it sees
// them.
class soak {
 public:
  soak(node &the_node, uint64_t seed) : node_(the_node), random_(seed) {}

  // One cycle; false when it did not end.
  bool cycle();
  void feed();
  // Puts every module back, working and with new values.
  void mend_all();
  const soak_counts &counts() const { return counts_; }

 private:
  void something_happens(const port_place &port);
  void take_out(const port_place &port);
  void put_in(const port_place &port);

  node &node_;
  stress::random_engine random_;
  std::set<uint32_t> vanished_;
  uint32_t hanging_ = 0;  // rsip, 0: none
  uint64_t cycles_ = 0;
  soak_counts counts_;
};

bool soak::cycle() {
  const auto ports = static_cast<uint32_t>(node_.ports().size());
  for (uint32_t i = below(random_, 6); i > 0; --i) {
    something_happens(node_.ports()[below(random_, ports)]);
  }
  stress::begin_polling_cycle();
  if (hanging_ != 0) {
    stress::polling_cycle_ended(1ms);
    node_.modules().set_faults(hanging_, {});
    hanging_ = 0;
  }
  if (!stress::polling_cycle_ended(cycle_bound)) return false;
  if (++cycles_ % cycles_per_feed == 0) feed();
  return true;
}

void soak::something_happens(const port_place &port) {
  lum_linux::fault_script faults;
  faults.seed = 1 + below(random_, 1000);
  switch (below(random_, 16)) {
    case 0:
      ++counts_.failing;
      faults.refuse_percent = 1 + below(random_, 100);
      node_.modules().set_faults(port.rsip, faults);
      break;
    case 1:
      ++counts_.failing;
      faults.flip_percent = 30;
      faults.flip_bits = 1 + below(random_, 4);
      faults.half_every = 2;
      node_.modules().set_faults(port.rsip, faults);
      break;
    case 2:
    case 3:
      take_out(port);
      break;
    case 4:
    case 5:
    case 6:
      put_in(port);
      break;
    case 7:
      ++counts_.upgrades;
      node_.platform().set_fw_upgrade(port.rsip, 1);
      break;
    case 8:
    case 9:
      node_.platform().set_fw_upgrade(port.rsip, 0);
      break;
    case 10:
      if (below(random_, 8) != 0) break;
      ++counts_.hangs;
      faults.hang = true;
      node_.modules().set_faults(port.rsip, faults);
      hanging_ = port.rsip;
      break;
    case 11:
    case 12:
      ++counts_.changed;
      stress::randomise_module(node_, port, random_);
      break;
    default:
      node_.modules().set_faults(port.rsip, {});
  }
}

// Half of the time the client sees it only with the module's return.
void soak::take_out(const port_place &port) {
  ++counts_.vanished;
  node_.modules().remove(port.rsip);
  vanished_.insert(port.rsip);
  if (below(random_, 2) == 0) lum_update_vendor_info(port.rsip, 0);
}

void soak::put_in(const port_place &port) {
  if (vanished_.erase(port.rsip) == 0) return;
  ++counts_.returned;
  if (hanging_ == port.rsip) hanging_ = 0;
  node_.modules().set_faults(port.rsip, {});
  node_.modules().insert(port.rsip);
  lum_update_vendor_info(port.rsip, 1);
}

void soak::feed() {
  for (const port_place &port : node_.ports()) {
    for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
      lum_update_pm_ptah_data(stress::ifhandle_of(port, s));
    }
  }
}

void soak::mend_all() {
  hanging_ = 0;
  vanished_.clear();
  for (const port_place &port : node_.ports()) {
    node_.modules().set_faults(port.rsip, {});
    node_.platform().set_fw_upgrade(port.rsip, 0);
    node_.modules().insert(port.rsip);
    lum_update_vendor_info(port.rsip, 1);
    stress::randomise_module(node_, port, random_);
  }
}

class soaked_node : public testing::Test {
 protected:
  static stress::node_shape shape() {
    stress::node_shape wanted;
    wanted.ports_per_slot = 16;
    wanted.module = stress::soak_module;
    return wanted;
  }
  void SetUp() override {
    the_node.create_all();
    ASSERT_TRUE(the_node.wait_idle());
    ASSERT_EQ(stress::ports_in_database(), 64u);
    stress::poll_on_demand();
  }
  // Polls and feeds the mended node until everything the library keeps is of now.
  void rest(soak &the_soak) {
    the_soak.mend_all();
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(stress::run_polling_cycle(cycle_bound));
    the_soak.feed();
  }
  stress::node the_node{shape()};
};

}  // namespace

TEST_F(soaked_node, ends_with_the_right_led_readings_and_bitmaps_on_every_port) {
  const auto cycles = stress::setting("LUM_SOAK_CYCLES", 10000, 400);
  const stress::watchdog dog(900s, {});
  soak the_soak(the_node, stress::setting("LUM_STRESS_SEED", 1));

  for (uint64_t i = 0; i < cycles / 10; ++i) ASSERT_TRUE(the_soak.cycle()) << "a cycle is stuck";
  ASSERT_NO_FATAL_FAILURE(rest(the_soak));
  const auto before = static_cast<int64_t>(stress::allocated_bytes());
  const uint64_t first = stress::polling_cycles();
  for (uint64_t i = 0; i < cycles; ++i) ASSERT_TRUE(the_soak.cycle()) << "cycle " << i;
  const uint64_t polled = stress::polling_cycles() - first;
  ASSERT_NO_FATAL_FAILURE(rest(the_soak));
  const int64_t growth = static_cast<int64_t>(stress::allocated_bytes()) - before;

  const soak_counts &counts = the_soak.counts();
  std::printf(
      "%lu cycles over %zu ports: %lu times failing, %lu vanished, %lu returned, "
      "%lu upgrades, %lu hangs, %lu changed; %ld bytes before, %+ld after\n",
      static_cast<unsigned long>(polled), the_node.ports().size(),
      static_cast<unsigned long>(counts.failing), static_cast<unsigned long>(counts.vanished),
      static_cast<unsigned long>(counts.returned), static_cast<unsigned long>(counts.upgrades),
      static_cast<unsigned long>(counts.hangs), static_cast<unsigned long>(counts.changed),
      static_cast<long>(before), static_cast<long>(growth));
  EXPECT_EQ(polled, cycles);
  for (const port_place &port : the_node.ports()) {
    const auto bytes = stress::look_into_module(the_node, port);
    for (const std::string &text : stress::differences(the_node, port, bytes)) {
      ADD_FAILURE() << stress::controller_name(port, 0) << ": " << text;
    }
  }
  EXPECT_LT(growth, allowed_growth);
  EXPECT_TRUE(lum_linux::blocked_threads().empty());
}
