// What reaches the checkpoint store while both sub-ports of a port are being changed.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "chkpt.h"
#include "crew.h"
#include "lum_linux/services.h"
#include "node.h"
#include "seams.h"
#include "settings.h"

namespace {

using namespace std::chrono_literals;
using stress::worker;

std::atomic<uint64_t> saves{0};
std::atomic<uint64_t> torn{0};

// All four settings of a change have the same value.
bool is_whole(const lum_port_cfg &cfg) {
  return cfg.setting_a == cfg.setting_b && cfg.setting_a == cfg.enable_flag &&
         cfg.setting_a == cfg.sub1_flag;
}

void change(const stress::port_place &port, uint32_t sub_port, uint32_t value) {
  lum_hw_info_in record = {};
  for (const std::size_t position :
       {LUM_HW_IN_SETTING_A, LUM_HW_IN_SETTING_B, LUM_HW_IN_ENABLE_FLAG, LUM_HW_IN_SUB1_FLAG}) {
    std::memcpy(reinterpret_cast<char *>(&record) + position, &value, sizeof value);
  }
  const uint32_t ifhandle = stress::ifhandle_of(port, sub_port);
  const uint64_t changed = LUM_CHANGE_SETTINGS;
  lum_set_hw_info(1, &ifhandle, &record, &changed);
}

}  // namespace

// Stands in for the store.
extern "C" cerrno chkpt_save(uint64_t, uint64_t, const void *data, uint32_t size) {
  lum_chkpt_record record;
  if (size != sizeof record) return 22;
  std::memcpy(&record, data, sizeof record);
  for (const lum_port_cfg &cfg : record.port_cfg) {
    if (!is_whole(cfg)) ++torn;
  }
  ++saves;
  return 0;
}

TEST(saved_records, hold_only_whole_changes_while_the_other_sub_port_is_saved) {
  const auto seconds = std::chrono::seconds(stress::setting("LUM_STRESS_SECONDS", 2));
  stress::node_shape shape;
  shape.slots = 1;
  shape.ports_per_slot = 1;
  shape.leds = false;
  stress::node node(shape);
  node.create_all();
  ASSERT_TRUE(node.wait_idle());
  const stress::port_place &port = node.ports().front();
  node.modules().remove(port.rsip);  // no time goes into transfers
  lum_update_vendor_info(port.rsip, 0);
  for (const char *channel : {"lum_error", "lum_info"}) lum_linux::traces_enable(channel, false);
  stress::crew crew(1);
  const stress::watchdog dog(seconds + 120s, [&] { return crew.report(); });
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    for (int i = 0; i < 2; ++i) {
      crew.add("sub-port " + std::to_string(s), [&, s](worker &self) {
        self.doing("changing the settings");
        change(port, s, stress::below(self.random, 1000));
      });
    }
  }
  std::this_thread::sleep_for(seconds);
  crew.dismiss();
  std::printf("%lu records saved, %lu torn\n", static_cast<unsigned long>(saves),
              static_cast<unsigned long>(torn));
  EXPECT_GT(saves, 0u);
  EXPECT_EQ(torn, 0u);
}
