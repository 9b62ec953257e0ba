// The ports of a finished create batch.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "blocks.h"
#include "controllers.h"
#include "performance.h"

namespace create_done_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t first = 0x30007;
constexpr uint32_t second = 0x30008;
const area here = {"lum_controller_interface"};

// Ports 7 and 8 without controllers.
class create_done : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(first);
    add_port(second);
    clear_record();
  }
  static lum_controller_create_request *request_for_both() {
    return create_request({controller(first, 0, 0x11), controller(first, 1, 0x12),
                           controller(second, 0, 0x13), controller(second, 1, 0x14)});
  }
};

TEST_F(create_done, without_a_request_is_traced) {
  lum_controller_create_done(nullptr);
  EXPECT_THAT(traces(), ElementsAre(here.complains("",
                                                   "No cntrl create type or interface attr "
                                                   "arrayin controller create cb fn")));
}

TEST_F(create_done, without_entries_is_traced_and_frees_nothing) {
  const block_watch blocks;
  auto *request = create_request({});
  std::free(request->entries);
  request->entries = nullptr;
  lum_controller_create_done(request);
  EXPECT_THAT(traces(), ElementsAre(here.complains("",
                                                   "No cntrl create type or interface attr "
                                                   "arrayin controller create cb fn")));
  EXPECT_THAT(blocks.live(), ElementsAre(sizeof(lum_controller_create_request)));
  free_request(request);
}

TEST_F(create_done, whole_story_of_one_port) {
  const std::string node = address(&node_at(first));
  clear_record();
  lum_controller_create_done(
      create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)}));
  EXPECT_THAT(
      story({"ctrl_op_notify", "led_set_state", "pm_ui_port_create", "ptah_al_port_create"}),
      ElementsAre(
          "LUM_INFO: Controller Created Intf_type 188 ifhandle 0x11 for rack 0 slot 3 inst 0 port "
          "7",
          "LUM_INFO: Port Found for rsip=0x30007 lum_port_node_info=" + node,
          "LUM_INFO: Parsing Ifname 'Ots0_3_0_7_0' ifhandle 0x11:",
          "LUM_INFO: Parsing Ifname 'Ots0_3_0_7_0' ifhandle 0x11: Parse rsip=0x30007 r=0 s=3 i=0 "
          "p=7 sub_port=0 sub_port_valid=1 success",
          "LUM_INFO: Port Found for rsip=196615 lum_port_node_info=" + node,
          "LUM_INFO: if type:188 ifname Ots0_3_0_7_0 rsip:196615 port_handle:0x1907",
          "pm_ui_port_create(188, 0x11, \"Ots0_3_0_7_0\")",
          "ptah_al_port_create(188, 0x11, \"Ots0_3_0_7_0\", 0, 1)",
          "LUM_INFO: Create PM, PTAH ports for 11 with rc 0\n",
          "LUM_INFO: Controller Created Intf_type 188 ifhandle 0x12 for rack 0 slot 3 inst 0 port "
          "7",
          "LUM_INFO: Port Found for rsip=0x30007 lum_port_node_info=" + node,
          "LUM_INFO: Parsing Ifname 'Ots0_3_0_7_1' ifhandle 0x12:",
          "LUM_INFO: Parsing Ifname 'Ots0_3_0_7_1' ifhandle 0x12: Parse rsip=0x30007 r=0 s=3 i=0 "
          "p=7 sub_port=1 sub_port_valid=1 success",
          "LUM_INFO: Port Found for rsip=196615 lum_port_node_info=" + node,
          "LUM_INFO: if type:188 ifname Ots0_3_0_7_1 rsip:196615 port_handle:0x1907",
          "pm_ui_port_create(188, 0x12, \"Ots0_3_0_7_1\")",
          "ptah_al_port_create(188, 0x12, \"Ots0_3_0_7_1\", 0, 1)",
          "LUM_INFO: Create PM, PTAH ports for 12 with rc 0\n",
          "LUM_INFO: enabling DOM for rsip: 0x30007",
          "ctrl_op_notify(1, 2, [0x30007 0x30007], [0 1], [0x11 0x12])",
          "LUM_INFO: port_handle is 0x1907 for rsip: 196615", "led_set_state(0x30007, 0, 0)",
          "led_set_state(0x30007, 0, 3)", "LUM_INFO: port_handle is 0x1907 for rsip: 196615",
          "led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 3)",
          "LUM_INFO: Controller create done cb for 2 ports, freeing allocated memory"));
}

TEST_F(create_done, lines_carry_their_area_and_signatures) {
  lum_controller_create_done(
      create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)}));
  EXPECT_THAT(
      traces(),
      lines_in_order(
          {here.says("dddddd",
                     "Controller Created Intf_type 188 ifhandle 0x11 for rack 0 slot 3 inst 0 "
                     "port 7"),
           here.says("dD",
                     "Port Found for rsip=0x30007 lum_port_node_info=" + address(&node_at(first))),
           here.says("d", "enabling DOM for rsip: 0x30007"),
           here.says("dd", "port_handle is 0x1907 for rsip: 196615"),
           here.says("d", "Controller create done cb for 2 ports, freeing allocated memory")}));
}

TEST_F(create_done, stores_handles_flags_and_device_ids) {
  lum_controller_create_done(request_for_both());
  EXPECT_EQ(interface_at(second, 1).ifhandle, 0x14u);
  EXPECT_EQ(interface_at(second, 1).created, 1u);
  EXPECT_EQ(data_at(second).device_id[1].ifhandle, 0x14u);
  EXPECT_EQ(data_at(second).device_id[1].valid, 0xFu);
  EXPECT_EQ(data_at(second).inserted, 1u);
  EXPECT_EQ(data_at(second).is_dom_enabled, 1);
  EXPECT_EQ(performance.pm.size(), 4u);
  EXPECT_EQ(data_at(first).led_state, 3u);
}

TEST_F(create_done, polling_is_not_enabled_until_both_sub_ports_are_created) {
  lum_controller_create_done(
      create_request({controller(first, 0, 0x11), controller(second, 0, 0x13)}));
  EXPECT_EQ(data_at(first).is_dom_enabled, 0);
  EXPECT_EQ(data_at(first).inserted, 0u);
  EXPECT_THAT(traces(), Not(Contains(starting("enabling DOM"))));
  lum_controller_create_done(
      create_request({controller(first, 1, 0x12), controller(second, 1, 0x14)}));
  EXPECT_EQ(data_at(first).is_dom_enabled, 1);
}

TEST_F(create_done, on_resync_is_only_traced) {
  auto *request = request_for_both();
  request->resync = 1;
  lum_controller_create_done(request);
  EXPECT_THAT(traces().at(0), here.says("", "In Create done on resync"));
  EXPECT_EQ(interface_at(first, 0).created, 1u);
  EXPECT_THAT(calls({"event_send_async", "im_req_by_name"}), IsEmpty());
}

TEST_F(create_done, without_resync_does_not_say_so) {
  lum_controller_create_done(request_for_both());
  EXPECT_THAT(traces(), Not(Contains(here.says("", "In Create done on resync"))));
}

TEST_F(create_done, missing_port_abandons_the_rest_of_the_batch_after_freeing_it) {
  const block_watch blocks;
  lum_controller_create_done(
      create_request({controller(first, 0, 0x11), controller(first, 1, 0x12),
                      controller(0x30009, 0, 0x15), controller(second, 0, 0x13)}));
  EXPECT_THAT(traces(), Contains(here.says("d", "Port Not Found in DB for rsip=196617")));
  EXPECT_EQ(interface_at(first, 1).created, 1u);
  EXPECT_EQ(interface_at(second, 0).created, 0u);
  EXPECT_THAT(calls({"ctrl_op_notify", "led_set_state"}), IsEmpty());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(create_done, wrong_interface_type_is_traced_and_the_batch_goes_on) {
  auto *request = create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)});
  request->intf_type = 77;
  lum_controller_create_done(request);
  EXPECT_THAT(traces(), Contains(here.complains("d", "wrong intf type 77 in create done")));
  EXPECT_EQ(interface_at(first, 0).created, 0u);
  EXPECT_THAT(performance.pm, IsEmpty());
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 2, [0x0 0x0], [0 0], [0x0 0x0])"));
  EXPECT_EQ(client.led(first), 3u);
}

TEST_F(create_done, wrong_interface_type_is_traced_for_each_entry_once_its_port_is_found) {
  const std::string node = address(&node_at(first));
  clear_record();
  auto *request = create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)});
  request->intf_type = 77;
  lum_controller_create_done(request);
  const auto lines = traces();
  ASSERT_GE(lines.size(), 6u);
  EXPECT_THAT(
      std::vector(lines.begin(), lines.begin() + 6),
      ElementsAre(here.says("dddddd",
                            "Controller Created Intf_type 77 ifhandle 0x11 for rack 0 slot 3 inst "
                            "0 port 7"),
                  here.says("dD", "Port Found for rsip=0x30007 lum_port_node_info=" + node),
                  here.complains("d", "wrong intf type 77 in create done"),
                  here.says("dddddd",
                            "Controller Created Intf_type 77 ifhandle 0x12 for rack 0 slot 3 inst "
                            "0 port 7"),
                  here.says("dD", "Port Found for rsip=0x30007 lum_port_node_info=" + node),
                  here.complains("d", "wrong intf type 77 in create done")));
}

TEST_F(create_done, missing_port_counts_before_a_wrong_interface_type) {
  auto *request = create_request({controller(0x30009, 0, 0x11), controller(first, 1, 0x12)});
  request->intf_type = 77;
  lum_controller_create_done(request);
  EXPECT_THAT(traces(), ElementsAre(here.says("dddddd",
                                              "Controller Created Intf_type 77 ifhandle 0x11 for "
                                              "rack 0 slot 3 inst 0 port 9"),
                                    here.says("d", "Port Not Found in DB for rsip=196617")));
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
}

TEST_F(create_done, batch_of_3_updates_all_three_ports_and_neither_notifies_nor_sets_leds) {
  add_port(0x30009);
  const block_watch blocks;
  lum_controller_create_done(create_request(
      {controller(first, 0, 0x11), controller(second, 0, 0x13), controller(0x30009, 0, 0x15)}));
  EXPECT_EQ(interface_at(first, 0).created, 1u);
  EXPECT_EQ(interface_at(second, 0).created, 1u);
  EXPECT_EQ(interface_at(0x30009, 0).created, 1u);
  EXPECT_THAT(traces().back(), here.complains("d", "wrong ifh numbers 3 in create done"));
  EXPECT_THAT(calls({"ctrl_op_notify", "led_set_state"}), IsEmpty());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(create_done, without_the_notify_slot_the_leds_are_set_all_the_same) {
  lum_get_ctx()->platform_cbs.ctrl_op_notify = nullptr;
  lum_controller_create_done(request_for_both());
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_EQ(client.led(second), 3u);
}

TEST_F(create_done, what_the_client_says_to_the_notification_is_not_looked_at) {
  script.fail("ctrl_op_notify", 1, 5);
  lum_controller_create_done(request_for_both());
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_EQ(client.led(second), 3u);
  EXPECT_THAT(traces().back(),
              here.says("d", "Controller create done cb for 4 ports, freeing allocated memory"));
}

// The sub-port has its handle already; only its device id goes without.
TEST_F(create_done, handle_whose_name_does_not_parse_leaves_the_device_id_empty) {
  script.fail("imc_ifname_parse", 1, 93);
  lum_controller_create_done(
      create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)}));
  EXPECT_THAT(traces(), Contains(here.complains(
                            "sd", "Ifname 'Ots0_3_0_7_0' ifhandle 11: Parse rsip failed")));
  EXPECT_EQ(data_at(first).device_id[0].valid, 0u);
  EXPECT_EQ(data_at(first).device_id[1].valid, 0xFu);
  EXPECT_EQ(interface_at(first, 0).ifhandle, 0x11u);
  EXPECT_EQ(interface_at(first, 0).created, 1u);
  EXPECT_THAT(calls({"pm_ui_port_create"}),
              Contains("pm_ui_port_create(188, 0x11, \"Ots0_3_0_7_0\")"));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 2, [0x30007 0x30007], [0 1], [0x11 0x12])"));
  EXPECT_EQ(client.led(first), 3u);
}

TEST_F(create_done, ports_mutex_is_not_taken) {
  pthread_mutex_t &mutex = data_at(first).port_mutex;
  ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
  on_another_thread([] {
    lum_controller_create_done(
        create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)}));
  });
  EXPECT_EQ(data_at(first).is_dom_enabled, 1);
  EXPECT_THAT(calls({"ptd_set_mutex_block"}), IsEmpty());
  EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
}

// ---- The running result ----

TEST_F(create_done, last_pm_failure_suppresses_every_led) {
  script.fail("pm_ui_port_create", 4, 5);
  lum_controller_create_done(request_for_both());
  EXPECT_THAT(traces(), Contains(here.complains("", "PM PTAH instance create failed")));
  EXPECT_THAT(calls({"led_set_state"}), IsEmpty());
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
  EXPECT_THAT(traces(), Contains(here.says("dd", "port_handle is 0x1908 for rsip: 196616")));
}

TEST_F(create_done, pm_failure_is_forgotten_with_the_next_success) {
  script.fail("pm_ui_port_create", 1, 5);
  lum_controller_create_done(request_for_both());
  EXPECT_THAT(traces(), Contains(here.complains("", "PM PTAH instance create failed")));
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_EQ(client.led(second), 3u);
}

TEST_F(create_done, one_led_failure_suppresses_the_leds_of_all_later_entries) {
  script.fail("led_set_state", 2, 5);
  lum_controller_create_done(request_for_both());
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 3)"));
  EXPECT_THAT(traces().back(),
              here.says("d", "Controller create done cb for 4 ports, freeing allocated memory"));
}

TEST_F(create_done, port_handle_that_is_not_found_sets_the_running_result_to_22) {
  // The look-up of the second loop fails for the first entry: the port is found four times before.
  script.fail("wavl_search", 9, 1);
  lum_controller_create_done(request_for_both());
  EXPECT_THAT(traces(), Contains(here.complains(
                            "dd", "port_handle not found for rsip: 196615, rc:0xffffffff")));
  EXPECT_THAT(calls({"led_set_state"}), IsEmpty());
  EXPECT_THAT(traces(), Contains(here.says("dd", "port_handle is 0x1908 for rsip: 196616")));
}

// ---- Numbers out of range and no memory ----

TEST_F(create_done, sub_port_out_of_range_is_told_and_touches_no_sub_port) {
  lum_controller_create_done(
      create_request({controller(first, 2, 0x11), controller(first, 255, 0x12)}));
  for (const lum_sub_port_intf &interface : data_at(first).sub_port) {
    EXPECT_EQ(interface.created, 0u);
    EXPECT_EQ(interface.ifhandle, 0u);
  }
  EXPECT_EQ(data_at(first).is_dom_enabled, 0);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 2, [0x30007 0x30007], [2 255], [0x11 0x12])"));
}

TEST_F(create_done, negative_count_is_even_or_odd_and_otherwise_harmless) {
  auto *request = create_request({});
  request->count = -1;
  lum_controller_create_done(request);
  EXPECT_THAT(traces(), ElementsAre(here.complains("d", "wrong ifh numbers -1 in create done")));
}

TEST_F(create_done, count_0_tells_the_client_of_nothing) {
  const block_watch blocks;
  lum_controller_create_done(create_request({}));
  EXPECT_THAT(calls(), ElementsAre("ctrl_op_notify(1, 0, [], [], [])"));
  EXPECT_THAT(traces(),
              ElementsAre(here.says(
                  "d", "Controller create done cb for 0 ports, freeing allocated memory")));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(create_done, negative_even_count_tells_no_client) {
  const block_watch blocks;
  auto *request = create_request({});
  request->count = -2;
  lum_controller_create_done(request);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(),
              ElementsAre(here.says(
                  "d", "Controller create done cb for -2 ports, freeing allocated memory")));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

class create_done_without_memory : public create_done,
                                   public testing::WithParamInterface<unsigned> {};

TEST_P(create_done_without_memory, does_everything_but_notify) {
  auto *request = create_request({controller(first, 0, 0x11), controller(first, 1, 0x12)});
  script.fail("calloc", GetParam(), 1);
  lum_controller_create_done(request);
  EXPECT_EQ(interface_at(first, 1).created, 1u);
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_EQ(client.led(first), 3u);
}

INSTANTIATE_TEST_SUITE_P(each_array, create_done_without_memory, testing::Range(1u, 4u));

}  // namespace

}  // namespace create_done_test
