// A port is told its new state.
#include <gmock/gmock.h>

#include <cstdint>

#include "controllers.h"

namespace port_update_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

const area lum_api = {"lum_api"};

class port_update : public created_ports {};

TEST_F(port_update, of_an_unknown_port_returns_22_and_touches_nothing) {
  EXPECT_EQ(lum_update_port(0, 3, 0, 44, 1), 22u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.complains("d", "port_node NULL for rsip: 0x3002c")));
  EXPECT_THAT(calls({"im_update_req_by_ifhandle", "led_set_state", "i2c_write_byte"}), IsEmpty());
}

TEST_F(port_update, with_state_0_updates_controllers_and_led_but_provisions_nothing) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 0), 0u);
  EXPECT_THAT(calls({"im_update_req_by_ifhandle", "led_set_state", "i2c_write_byte"}),
              ElementsAre("im_update_req_by_ifhandle(188, 3744, 0x80000006, 2)",
                          "led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 3)"));
  EXPECT_THAT(traces(), Not(Contains(starting("subport"))));
}

TEST_F(port_update, with_a_state_provisions_both_sub_ports_with_their_own_change_bits) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  data_at(first).port_cfg[1].changed_bits = 0x40000;
  data_at(first).port_cfg[1].mode = 3;
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(), lines_in_order({info("subport 0 changed bits: [0x40000] RSIP 0/3/0/7\n"),
                                        info("Write page 3 offset 85 val 1 on 0/7 rc 0\n"),
                                        info("subport 1 changed bits: [0x40000] RSIP 0/3/0/7\n"),
                                        info("Write page 3 offset 80 val 2 on 0/7 rc 0\n")}));
}

TEST_F(port_update, led_is_set_to_fault_whatever_the_state) {
  client.set_led(first, 1);
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 4), 0u);
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_EQ(data_at(first).led_state, 3u);
}

TEST_F(port_update, refused_update_is_traced_and_the_rest_is_done) {
  script.fail("im_update_req_by_ifhandle", 1, 31);
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(), Contains(lum_api.complains("", "Controller state update failed\n")));
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_THAT(traces(), Contains(starting("subport 1 changed bits")));
}

TEST_F(port_update, led_failure_is_traced_and_the_rest_is_done) {
  script.fail("led_set_state", 2, 5);
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(), Contains(lum_api.complains("", "LED state update failed\n")));
  EXPECT_THAT(traces(), Contains(starting("subport 1 changed bits")));
}

TEST_F(port_update, takes_its_steps_in_order) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(calls({"im_update_req_by_ifhandle", "led_set_state", "i2c_write_byte"}),
              ElementsAre("im_update_req_by_ifhandle(188, 3744, 0x80000006, 2)",
                          "led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 3)",
                          "i2c_write_byte(3, 0, 7, 3, 133, 1)"));
}

// ---- The state and the place ----

TEST_F(port_update, passes_the_state_on_to_both_controllers) {
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 4), 0u);
  const area lum_im = {"lum_im"};
  EXPECT_THAT(traces(),
              lines_in_order(
                  {lum_im.says("ddd", "controller_update,index,0,ifh,1001,controller_state,4"),
                   lum_im.says("ddd", "controller_update,index,1,ifh,1002,controller_state,4")}));
}

TEST_F(port_update, passes_state_0_on_as_a_state_that_is_present) {
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 0), 0u);
  for (const uint32_t sub_port : {0u, 1u}) {
    EXPECT_EQ(im.batches.back().element(sub_port)[0], 0) << sub_port;
    EXPECT_EQ(im.batches.back().element(sub_port)[1], 1) << sub_port;
  }
}

// The port number runs over into the instance; the controllers are looked up by their own place.
TEST_F(port_update, port_number_above_255_means_the_port_of_the_sum_but_not_its_controllers) {
  add_created_port(0x30107, 0x2001, 0x2002);
  clear_record();
  EXPECT_EQ(lum_update_port(0, 3, 0, 0x107, 1), 0u);
  EXPECT_THAT(im.batches.back().ifhandles, ElementsAre(0, 0));
  EXPECT_THAT(calls({"led_set_state"}), Contains("led_set_state(0x30107, 0, 3)"));
}

}  // namespace

}  // namespace port_update_test
