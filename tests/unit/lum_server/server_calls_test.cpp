// The small calls of the server module.
#include <gmock/gmock.h>

#include "library.h"

namespace server_calls_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_server";

using server_calls = running_library;

TEST_F(server_calls, flag_setters_write_one_flag_each) {
  lum_port_data &port = add_port(0x30107).data;
  lum_mark_provisioning_needed(&port);
  EXPECT_EQ(port.provisioning_needed, 1u);
  EXPECT_EQ(port.force_reprovisioning, 0u);
  lum_set_force_reprovisioning(&port);
  lum_clear_provisioning_needed(&port);
  EXPECT_EQ(port.provisioning_needed, 0u);
  EXPECT_EQ(port.force_reprovisioning, 1u);
}

TEST_F(server_calls, hooks_answer_constants) {
  lum_port_data &port = add_port(0x30107).data;
  clear_record();
  EXPECT_EQ(lum_is_config_changed(), 1u);
  EXPECT_EQ(lum_process_provisioning(&port, 5), 0u);
  EXPECT_EQ(lum_check_fpd_upgrade_progress(), 0u);
  EXPECT_EQ(lum_ots_handle_admin_update(), 0u);
  EXPECT_EQ(lum_ots_fill_hw_info(), 0u);
  EXPECT_EQ(ots_async_op, 0u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(server_calls, controllers_are_up_when_both_flags_are_non_zero) {
  lum_port_data &port = add_port(0x30107).data;
  const auto up = [&](uint32_t first, uint32_t second) {
    port.sub_port[0].controller_up = first;
    port.sub_port[1].controller_up = second;
    return lum_is_ctrlrs_up(&port);
  };
  EXPECT_EQ(up(0, 0), 0u);
  EXPECT_EQ(up(1, 0), 0u);
  EXPECT_EQ(up(0, 1), 0u);
  EXPECT_EQ(up(1, 0x100), 1u);
}

TEST_F(server_calls, port_update_state_of_a_known_handle_does_nothing) {
  add_port(0x30107);
  clear_record();
  EXPECT_EQ(lum_port_update_state(handle_for(0x30107)), 0u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(server_calls, port_update_state_of_an_unknown_handle_is_traced_and_22) {
  EXPECT_EQ(lum_port_update_state(0x1234), 22u);
  EXPECT_THAT(traces(), ElementsAre(error(254, "lum_port_update_state: Error rc 2\n").of(area)));
}

}  // namespace

}  // namespace server_calls_test
