// The ports of a finished delete batch.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "blocks.h"
#include "checkpoints.h"
#include "controllers.h"
#include "performance.h"

namespace delete_done_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const area lum_im = {"lum_im"};
const area here = {"lum_controller_interface"};

// Port 7 with handles 0x1001 and 0x1002, port 8 with 0x1003 and 0x1004.
class delete_done : public created_ports {
 protected:
  static void finish(std::initializer_list<uint32_t> ifhandles) {
    lum_controller_delete_done(delete_request(ifhandles));
  }
  static bool exists(uint32_t rsip) { return lum_ports_db_find_entry(rsip) != nullptr; }
};

TEST_F(delete_done, completion_traces_the_request_and_finishes_it_without_looking_at_the_reply) {
  auto *request = delete_request({0x1001, 0x1002});
  const std::string request_address = address(request);
  lum_im_delete_complete_resp_cb(nullptr, request);
  EXPECT_THAT(traces().front(),
              lum_im.says("Ddd", "icpe delete cb operations:0x" + request_address +
                                     " bulk count:2 first ifh :0x1001"));
  EXPECT_FALSE(exists(first));
}

TEST_F(delete_done, completion_without_a_request_is_traced_with_minus_1_and_0) {
  lum_im_delete_complete_resp_cb(nullptr, nullptr);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          lum_im.says("Ddd", "icpe delete cb operations:0x(nil) bulk count:-1 first ifh :0x0"),
          here.complains(
              "", "No cntrl delete type or interface attr arrayin controller delete cb fn")));
}

TEST_F(delete_done, count_below_1_is_traced_and_the_request_freed) {
  const block_watch blocks;
  auto *request = delete_request({0x1001});
  request->count = 0;
  lum_im_delete_complete_resp_cb(nullptr, request);
  EXPECT_THAT(traces().back(), here.complains("d", "Invalid count 0 in cntrl delete cb"));
  request = delete_request({0x1001});
  request->count = -4;
  lum_controller_delete_done(request);
  EXPECT_THAT(traces().back(), here.complains("d", "Invalid count -4 in cntrl delete cb"));
  EXPECT_THAT(blocks.live(), IsEmpty());
  EXPECT_TRUE(exists(first));
}

TEST_F(delete_done, missing_handle_array_is_traced_and_the_request_freed) {
  const block_watch blocks;
  auto *request = delete_request({});
  std::free(request->ifhandles);
  request->ifhandles = nullptr;
  request->count = 2;
  const std::string request_address = address(request);
  lum_im_delete_complete_resp_cb(nullptr, request);
  EXPECT_THAT(traces().back(),
              here.complains("D", "Ifh array is NULL in operations 0" + request_address));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

// The handle beyond the count is not shown.
TEST_F(delete_done, completion_with_count_0_is_traced_with_handle_0) {
  auto *request = delete_request({0x1001});
  request->count = 0;
  const std::string request_address = address(request);
  lum_im_delete_complete_resp_cb(nullptr, request);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.says("Ddd", "icpe delete cb operations:0x" + request_address +
                                                 " bulk count:0 first ifh :0x0"),
                          here.complains("d", "Invalid count 0 in cntrl delete cb")));
}

class delete_done_without_memory : public delete_done,
                                   public testing::WithParamInterface<unsigned> {};

TEST_P(delete_done_without_memory, traces_the_error_number_and_frees_the_request) {
  const block_watch blocks;
  auto *request = delete_request({0x1001, 0x1002});
  script.fail("calloc", GetParam(), 1);
  lum_controller_delete_done(request);
  EXPECT_THAT(traces(), ElementsAre(here.complains("d", "calloc failure errno 12")));
  EXPECT_THAT(blocks.live(), IsEmpty());
  EXPECT_TRUE(exists(first));
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(each_allocation, delete_done_without_memory, testing::Range(1u, 4u));

TEST_F(delete_done, unknown_first_handle_is_traced_and_ends_the_batch) {
  const block_watch blocks;
  finish({0x9999, 0x1001});
  EXPECT_THAT(traces(),
              ElementsAre(here.complains("d", "incorrect first Ifh in delete done for 0x9999")));
  EXPECT_EQ(interface_at(first, 0).created, 1u);
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(delete_done, name_that_does_not_parse_is_traced_with_the_parsers_text_and_ends_the_batch) {
  const block_watch blocks;
  script.fail("imc_ifname_parse", 1, 93);
  finish({0x1001, 0x1002});
  EXPECT_THAT(traces().back(), here.complains("s", "parsing ifname in delete done err error 93"));
  EXPECT_TRUE(exists(first));
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(delete_done, name_without_an_end_is_read_no_further_than_64_characters) {
  std::memset(interface_at(first, 0).ifname, 'x', 64);
  finish({0x1001});
  EXPECT_THAT(
      traces(),
      ElementsAre(area{"lum_utils"}.complains(
                      "ss", "Parsing Ifname '" + std::string(64, 'x') + "' error: error 22\n"),
                  here.complains("s", "parsing ifname in delete done err error 22")));
  EXPECT_EQ(interface_at(first, 0).created, 1u);
}

TEST_F(delete_done, wrong_interface_type_is_traced_and_ends_the_batch) {
  const block_watch blocks;
  std::snprintf(interface_at(first, 1).ifname, 64, "Och0_3_2_7_1");
  finish({0x1002, 0x1001});
  EXPECT_THAT(traces(),
              lines_in_order({here.says("sd", "intf name parsed Och0_3_2_7_1 intf type 0"),
                              here.complains("dddd",
                                             "incorrect IFT in delete done for R/S/I/P: "
                                             "0/3/2/7")}));
  EXPECT_TRUE(exists(first));
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(delete_done, whole_story_of_one_port) {
  finish({0x1001, 0x1002});
  EXPECT_THAT(
      story({"ctrl_op_notify", "led_set_state", "pm_ui_port_delete", "ptah_al_port_delete",
             "wavl_delete", "chkpt_mapkey", "chkpt_delete"}),
      ElementsAre(
          "LUM_INFO: intf name parsed Ots0_3_0_7_0 intf type 188",
          "LUM_INFO: marking sub port 0 delete done", "ptah_al_port_delete(0x1001)",
          "pm_ui_port_delete(0x1001)", "LUM_INFO: Delete PM, PTAH ports for 1001 with rc 0\n",
          "LUM_INFO: marking sub port 1 delete done", "ptah_al_port_delete(0x1002)",
          "pm_ui_port_delete(0x1002)", "LUM_INFO: Delete PM, PTAH ports for 1002 with rc 0\n",
          "led_set_state(0x30007, 0, 0)", "LUM_INFO: calling lum platform ports deinit",
          "LUM_INFO: executing for r/s/i/p: 0/3/0/7\n",
          "LUM_ERR: module access unlock failed with rc 1\n", "wavl_delete(0x30007)",
          "LUM_INFO: ports DB delete done, rsip 0x30007\n",
          "LUM_INFO: Succesfully removed Port 7 from inst 0 of Ports-DB:\n",
          "chkpt_mapkey(0xc0de, 0x30007, 0x30000)", "chkpt_delete(0xc0de, 0x501)",
          "LUM_INFO: checkpoint record deleted for chkpt_id 0x501\n",
          "LUM_INFO: checkpoint deleted for rsip: 0x30007 rc 0",
          "ctrl_op_notify(0, 2, [0x30007 0x30007], [0 1], [0x1001 0x1002])",
          "LUM_INFO: Controller delete done cb for 2 ports, Ots0_3_0_7_0 freed memory"));
}

TEST_F(delete_done, lines_carry_their_area_and_signatures) {
  finish({0x1003, 0x1004});
  EXPECT_THAT(traces(),
              lines_in_order({here.says("sd", "intf name parsed Ots0_3_0_8_0 intf type 188"),
                              here.says("", "marking sub port 0 delete done"),
                              here.says("", "marking sub port 1 delete done"),
                              here.says("", "calling lum platform ports deinit"),
                              here.says("dd", "checkpoint deleted for rsip: 0x30008 rc 0"),
                              here.says("ds",
                                        "Controller delete done cb for 2 ports, Ots0_3_0_8_0 freed "
                                        "memory")}));
}

TEST_F(delete_done, sub_port_0_alone_leaves_led_platform_state_and_checkpoint) {
  finish({0x1001});
  EXPECT_EQ(interface_at(first, 0).created, 0u);
  EXPECT_EQ(interface_at(first, 1).created, 1u);
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_TRUE(checkpoints.has(first));
  EXPECT_EQ(performance.pm.count(0x1001), 0u);
  EXPECT_EQ(performance.pm.count(0x1002), 1u);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 1, [0x30007], [0], [0x1001])"));
}

TEST_F(delete_done, sub_port_1_afterwards_removes_the_port) {
  finish({0x1001});
  finish({0x1002});
  EXPECT_FALSE(exists(first));
  EXPECT_EQ(client.led(first), 0u);
  EXPECT_FALSE(checkpoints.has(first));
  EXPECT_TRUE(exists(second));
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 1u);
}

TEST_F(delete_done, handle_stays_with_the_sub_port_until_the_port_goes) {
  finish({0x1001});
  EXPECT_EQ(interface_at(first, 0).ifhandle, 0x1001u);
}

TEST_F(delete_done, sub_port_0_counts_before_sub_port_1_and_the_first_node_before_the_next) {
  interface_at(first, 0).ifhandle = 0x1001;
  interface_at(first, 1).ifhandle = 0x1001;
  interface_at(second, 0).ifhandle = 0x1001;
  finish({0x1001});
  EXPECT_EQ(interface_at(first, 0).created, 0u);
  EXPECT_EQ(interface_at(first, 1).created, 1u);
  EXPECT_EQ(interface_at(second, 0).created, 1u);
  EXPECT_THAT(traces(), Contains(here.says("", "marking sub port 0 delete done")));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 1, [0x30007], [0], [0x1001])"));
}

// Everything else of the port goes.
TEST_F(delete_done, controller_that_is_up_keeps_its_node) {
  interface_at(first, 1).controller_up = 1;
  finish({0x1001, 0x1002});
  EXPECT_TRUE(exists(first));
  EXPECT_THAT(calls({"wavl_delete"}), IsEmpty());
  EXPECT_EQ(client.led(first), 0u);
  EXPECT_FALSE(checkpoints.has(first));
  EXPECT_THAT(traces(),
              lines_in_order({here.says("", "calling lum platform ports deinit"),
                              here.says("dd", "checkpoint deleted for rsip: 0x30007 rc 0")}));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 2, [0x30007 0x30007], [0 1], [0x1001 0x1002])"));
}

TEST_F(delete_done, batch_of_two_ports_removes_both) {
  finish({0x1001, 0x1002, 0x1003, 0x1004});
  EXPECT_FALSE(exists(first));
  EXPECT_FALSE(exists(second));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x1001 0x1002 0x1003 0x1004])"));
}

// Positions count only the handles that were found.
TEST_F(delete_done, unknown_handle_leaves_nothing_recorded_and_the_rest_goes_on) {
  finish({0x1002, 0x9999, 0x1001});
  EXPECT_FALSE(exists(first));
  EXPECT_EQ(interface_at(second, 0).created, 1u);
  EXPECT_EQ(interface_at(second, 1).created, 1u);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 3, [0x30007 0x30007 0x0], [1 0 0], "
                          "[0x1002 0x9999 0x1001])"));
  EXPECT_EQ(calls({"pm_ui_port_delete"}).size(), 2u);
}

TEST_F(delete_done, handle_of_a_port_already_gone_is_passed_over) {
  finish({0x1003, 0x1001, 0x1002, 0x1001});
  EXPECT_FALSE(exists(first));
  EXPECT_TRUE(exists(second));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 4, [0x30008 0x30007 0x30007 0x0], [0 0 1 0], "
                          "[0x1003 0x1001 0x1002 0x1001])"));
}

// As benign elements leave it: sub-port 0 is found both times.
TEST_F(delete_done, handle_0_is_a_handle_like_any_other) {
  interface_at(first, 0).ifhandle = 0;
  interface_at(first, 1).ifhandle = 0;
  finish({0, 0});
  EXPECT_EQ(interface_at(first, 0).created, 0u);
  EXPECT_EQ(interface_at(first, 1).created, 1u);
  EXPECT_TRUE(exists(first));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 2, [0x30007 0x30007], [0 0], [0x0 0x0])"));
}

TEST_F(delete_done, without_the_notify_slot_the_ports_go_all_the_same) {
  lum_get_ctx()->platform_cbs.ctrl_op_notify = nullptr;
  finish({0x1001, 0x1002});
  EXPECT_FALSE(exists(first));
  EXPECT_THAT(traces().back(), here.says("ds",
                                         "Controller delete done cb for 2 ports, "
                                         "Ots0_3_0_7_0 freed memory"));
}

// ---- Failures on the way ----

TEST_F(delete_done, pm_failure_is_traced_and_the_batch_goes_on) {
  script.fail("pm_ui_port_delete", 1, 5);
  finish({0x1001, 0x1002});
  EXPECT_THAT(traces(), Contains(here.complains("", "PM PTAH instance delete failed")));
  EXPECT_FALSE(exists(first));
}

TEST_F(delete_done, led_failure_does_not_stop_the_batch) {
  script.fail("led_set_state", 1, 5);
  finish({0x1001, 0x1002});
  EXPECT_FALSE(exists(first));
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
}

TEST_F(delete_done, failing_removal_leaves_the_port_and_deletes_its_checkpoint) {
  script.fail("wavl_delete", 1, 1);
  finish({0x1001, 0x1002});
  EXPECT_TRUE(exists(first));
  EXPECT_FALSE(checkpoints.has(first));
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
}

TEST_F(delete_done, failing_checkpoint_is_traced_with_its_code) {
  script.fail("chkpt_delete", 1, 5);
  finish({0x1001, 0x1002});
  EXPECT_THAT(traces(), Contains(here.says("dd", "checkpoint deleted for rsip: 0x30007 rc 5")));
  EXPECT_FALSE(exists(first));
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
}

TEST_F(delete_done, what_the_client_says_to_the_notification_is_not_looked_at) {
  script.fail("ctrl_op_notify", 1, 5);
  finish({0x1001, 0x1002});
  EXPECT_THAT(traces().back(), here.says("ds",
                                         "Controller delete done cb for 2 ports, Ots0_3_0_7_0 "
                                         "freed memory"));
}

class delete_done_with_a_failure : public delete_done,
                                   public testing::WithParamInterface<const char *> {};

TEST_P(delete_done_with_a_failure, of_the_first_port_removes_the_second_all_the_same) {
  script.fail(GetParam(), 1, 5);
  finish({0x1001, 0x1002, 0x1003, 0x1004});
  EXPECT_FALSE(exists(second));
  EXPECT_FALSE(checkpoints.has(second));
  EXPECT_EQ(client.led(second), 0u);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(0, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x1001 0x1002 0x1003 0x1004])"));
}

INSTANTIATE_TEST_SUITE_P(each_step, delete_done_with_a_failure,
                         testing::Values("led_set_state", "wavl_delete", "chkpt_delete"));

TEST_F(delete_done, searches_take_no_database_mutex) {
  watch(lum_platform.mutex, "db");
  finish({0x1001});
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

TEST_F(delete_done, searches_run_from_the_first_node_for_every_handle) {
  finish({0x1003});
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next"}),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)", "wavl_get_first(0)",
                          "wavl_get_next(0x30007, 0)"));
}

}  // namespace

}  // namespace delete_done_test
