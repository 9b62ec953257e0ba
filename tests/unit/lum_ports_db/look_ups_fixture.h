// One port whose two controllers exist, to be looked up.
#pragma once

#include <gmock/gmock.h>

#include <cstring>

#include "library.h"
#include "lum_ports_db/lum_ports_db.h"

namespace look_ups_fixture {

inline constexpr uint32_t rsip = 0x30007;
inline constexpr uint32_t handle = support::handle_for(rsip);
inline constexpr uint32_t ifh_0 = 0x1000;
inline constexpr uint32_t ifh_1 = 0x1001;
inline constexpr uint32_t not_found = 0xFFFFFFFF;

// A record that shows whether it has been written to.
inline lum_device_id_td marked() {
  lum_device_id_td record;
  std::memset(&record, 0xEE, sizeof record);
  return record;
}
inline bool is_marked(const lum_device_id_td &record) {
  const lum_device_id_td mark = marked();
  return std::memcmp(&record, &mark, sizeof record) == 0;
}

class look_ups : public support::running_library {
 protected:
  void SetUp() override {
    support::running_library::SetUp();
    support::add_port(rsip);
    ASSERT_EQ(lum_update_ifhandle("Ots0_3_0_7_0", ifh_0), 0u);
    ASSERT_EQ(lum_update_ifhandle("Ots0_3_0_7_1", ifh_1), 0u);
    support::clear_record();
  }
};

}  // namespace look_ups_fixture
