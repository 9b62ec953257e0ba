// The ports of a finished update batch, and the handles that ports are given.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "blocks.h"
#include "controllers.h"

namespace update_done_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t rsip = 0x30007;
const area lum_im = {"lum_im"};
const area here = {"lum_controller_interface"};

class update_done : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_created_port(rsip, 0x1001, 0x1002);
    add_created_port(rsip + 1, 0x1003, 0x1004);
    clear_record();
  }
};

TEST_F(update_done, completion_traces_the_request_and_finishes_it_without_looking_at_the_reply) {
  auto *request = update_request({0x1001, 0x1003});
  request->state_change = 1;
  const std::string request_address = address(request);
  lum_im_update_complete_resp_cb(nullptr, request);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.says("Ddddd", "icpe update cb operations:0x" + request_address +
                                                   " bulk count:2 first ifh :0x1001state "
                                                   "change:1 capability change:0"),
                          here.says("d",
                                    "Controller update done cb for 2 ports, freed "
                                    "memory")));
  EXPECT_THAT(calls({"ctrl_update_notify"}),
              ElementsAre("ctrl_update_notify(2, [0x30007 0x30008])"));
}

TEST_F(update_done, completion_without_a_request_is_traced_with_minus_1_and_zeros) {
  imca_reply_info_type reply = {};
  lum_im_update_complete_resp_cb(&reply, nullptr);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.says("Ddddd",
                                      "icpe update cb operations:0x(nil) bulk count:-1 first ifh "
                                      ":0x0state change:0 capability change:0"),
                          here.complains("",
                                         "No cntrl update type or interface attr arrayin "
                                         "controller update cb fn")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(update_done, completion_with_count_0_still_frees_the_request_and_traces_both_messages) {
  const block_watch blocks;
  auto *request = update_request({});
  const std::string request_address = address(request);
  lum_im_update_complete_resp_cb(nullptr, request);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.says("Ddddd", "icpe update cb operations:0x" + request_address +
                                                   " bulk count:0 first ifh :0x0state change:0 "
                                                   "capability change:0"),
                          here.complains("d", "Invalid count 0 in cntrl update cb"),
                          here.says("d", "Controller update done cb for 0 ports, freed memory")));
  EXPECT_THAT(blocks.live(), IsEmpty());
  EXPECT_THAT(calls({"ctrl_update_notify"}), IsEmpty());
}

TEST_F(update_done, negative_count_is_invalid_too) {
  const block_watch blocks;
  auto *request = update_request({0x1001});
  request->count = -5;
  lum_controller_update_done(request);
  EXPECT_THAT(traces(), ElementsAre(here.complains("d", "Invalid count -5 in cntrl update cb"),
                                    here.says("d",
                                              "Controller update done cb for -5 ports, freed "
                                              "memory")));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(update_done, unknown_handle_has_rsip_0) {
  lum_controller_update_done(update_request({0x9999, 0x1004}));
  EXPECT_THAT(calls({"ctrl_update_notify"}), ElementsAre("ctrl_update_notify(2, [0x0 0x30008])"));
}

TEST_F(update_done, handle_that_only_the_client_knows_is_looked_up_there) {
  client.set_name(0x9999, "Ots0_3_0_9_0");
  lum_controller_update_done(update_request({0x9999}));
  EXPECT_THAT(calls({"ctrl_update_notify"}), ElementsAre("ctrl_update_notify(1, [0x30009])"));
}

TEST_F(update_done, without_the_slot_or_the_context_nobody_is_told) {
  {
    const context_hidden hidden;
    lum_controller_update_done(update_request({0x1001}));
  }
  lum_get_ctx()->platform_cbs.ctrl_update_notify = nullptr;
  lum_controller_update_done(update_request({0x1001}));
  EXPECT_THAT(calls({"ctrl_update_notify"}), IsEmpty());
  EXPECT_THAT(traces().back(),
              here.says("d", "Controller update done cb for 1 ports, freed memory"));
}

TEST_F(update_done, what_the_client_says_to_the_notification_is_not_looked_at) {
  const block_watch blocks;
  script.fail("ctrl_update_notify", 1, 5);
  lum_controller_update_done(update_request({0x1001}));
  EXPECT_THAT(traces(), ElementsAre(here.says("d",
                                              "Controller update done cb for 1 ports, freed "
                                              "memory")));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(update_done, states_and_attributes_stay_with_the_caller) {
  uint32_t states[] = {1};
  lum_controller_attrs attrs = {};
  auto *request = update_request({0x1001});
  request->states = states;
  request->attrs = &attrs;
  lum_controller_update_done(request);
  EXPECT_EQ(states[0], 1u);
}

TEST_F(update_done, without_memory_for_the_rsips_nobody_is_told) {
  const block_watch blocks;
  auto *request = update_request({0x1001});
  script.fail("calloc", 1, 1);
  lum_controller_update_done(request);
  EXPECT_THAT(calls({"ctrl_update_notify"}), IsEmpty());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(update_done, without_handles_nobody_is_told) {
  auto *request = update_request({0x1001});
  std::free(request->ifhandles);
  request->ifhandles = nullptr;
  lum_im_update_complete_resp_cb(nullptr, request);
  EXPECT_THAT(calls({"ctrl_update_notify"}), IsEmpty());
  EXPECT_THAT(traces().back(),
              here.says("d", "Controller update done cb for 1 ports, freed memory"));
}

// ---- Recording a handle ----

class update_ifhandle : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(rsip);
    clear_record();
  }
};

TEST_F(update_ifhandle, traces_the_name_the_place_and_the_record) {
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_7_1", 0x2001), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          here.says("sd", "Parsing Ifname 'Ots0_3_0_7_1' ifhandle 0x2001:"),
          here.says("sdddddddd",
                    "Parsing Ifname 'Ots0_3_0_7_1' ifhandle 0x2001: Parse rsip=0x30007 r=0 s=3 "
                    "i=0 p=7 sub_port=1 sub_port_valid=1 success"),
          here.says("dD",
                    "Port Found for rsip=196615 lum_port_node_info=" + address(&node_at(rsip))),
          here.says("dsdd", "if type:188 ifname Ots0_3_0_7_1 rsip:196615 port_handle:0x1907")));
}

TEST_F(update_ifhandle, stores_the_whole_record_and_the_handle) {
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_7_1", 0x2001), 0u);
  const lum_device_id_td &id = data_at(rsip).device_id[1];
  EXPECT_EQ(id.valid, 0xFu);
  EXPECT_EQ(id.port_handle, 0x1907u);
  EXPECT_EQ(id.iftype, 188u);
  EXPECT_EQ(id.ifhandle, 0x2001u);
  EXPECT_STREQ(id.ifname, "Ots0_3_0_7_1");
  EXPECT_EQ(interface_at(rsip, 1).ifhandle, 0x2001u);
  EXPECT_EQ(data_at(rsip).device_id[0].valid, 0u);
  EXPECT_EQ(interface_at(rsip, 0).ifhandle, 0u);
  EXPECT_EQ(interface_at(rsip, 1).created, 0u);
}

TEST_F(update_ifhandle, handle_0_is_stored_but_not_marked_valid) {
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_7_0", 0x2001), 0u);
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_7_0", 0), 0u);
  EXPECT_EQ(data_at(rsip).device_id[0].valid, 0xDu);
  EXPECT_EQ(data_at(rsip).device_id[0].ifhandle, 0u);
  EXPECT_EQ(interface_at(rsip, 0).ifhandle, 0u);
}

// As it stands between the two steps of a port's creation.
TEST_F(update_ifhandle, port_without_a_port_handle_has_a_valid_one_of_0) {
  const uint32_t port = 9;
  lum_platform_ctx_init(0, 3, 0, 1, &port);
  clear_record();
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_9_0", 0x2001), 0u);
  EXPECT_EQ(data_at(rsip + 2).device_id[0].valid, 0xFu);
  EXPECT_EQ(data_at(rsip + 2).device_id[0].port_handle, 0u);
  EXPECT_THAT(
      traces(),
      Contains(here.says("dsdd", "if type:188 ifname Ots0_3_0_9_0 rsip:196617 port_handle:0x0")));
}

TEST_F(update_ifhandle, name_without_a_sub_port_means_sub_port_0) {
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_7", 0x2001), 0u);
  EXPECT_THAT(traces(), Contains(here.says("sdddddddd",
                                           "Parsing Ifname 'Ots0_3_0_7' ifhandle 0x2001: Parse "
                                           "rsip=0x30007 r=0 s=3 i=0 p=7 sub_port=0 "
                                           "sub_port_valid=0 success")));
  EXPECT_EQ(interface_at(rsip, 0).ifhandle, 0x2001u);
}

TEST_F(update_ifhandle, name_of_another_type_is_recorded_with_type_0) {
  EXPECT_EQ(lum_update_ifhandle("Och0_3_0_7_0", 0x2001), 0u);
  EXPECT_EQ(data_at(rsip).device_id[0].iftype, 0u);
  EXPECT_EQ(data_at(rsip).device_id[0].valid, 0xFu);
}

TEST_F(update_ifhandle, name_that_does_not_parse_is_traced_and_the_parsers_code_returned) {
  EXPECT_EQ(lum_update_ifhandle("nonsense", 0x2001), 22u);
  EXPECT_THAT(traces().back(),
              here.complains("sd", "Ifname 'nonsense' ifhandle 2001: Parse rsip failed"));
  script.fail("imc_ifname_parse", 1, 93);
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_7_0", 0x2001), 93u);
}

TEST_F(update_ifhandle, null_name_is_the_parsers_error) {
  EXPECT_EQ(lum_update_ifhandle(nullptr, 0x2001), 22u);
  EXPECT_THAT(traces().front(), here.says("sd", "Parsing Ifname '' ifhandle 0x2001:"));
  EXPECT_THAT(traces().back(), here.complains("sd", "Ifname '' ifhandle 2001: Parse rsip failed"));
}

TEST_F(update_ifhandle, unknown_port_is_traced_and_returns_22) {
  EXPECT_EQ(lum_update_ifhandle("Ots0_3_0_9_0", 0x2001), 22u);
  EXPECT_THAT(traces().back(), here.complains("d", "Port Not Found in DB\n for rsip=196617"));
}

class sub_port_out_of_range : public update_ifhandle,
                              public testing::WithParamInterface<const char *> {};

TEST_P(sub_port_out_of_range, returns_22_and_writes_nothing) {
  lum_port_data before;
  std::memcpy(static_cast<void *>(&before), &data_at(rsip), sizeof before);
  EXPECT_EQ(lum_update_ifhandle(GetParam(), 0x2001), 22u);
  EXPECT_EQ(std::memcmp(&before, &data_at(rsip), sizeof before), 0);
}

INSTANTIATE_TEST_SUITE_P(each_name, sub_port_out_of_range,
                         testing::Values("Ots0_3_0_7_2", "Ots0_3_0_7_4294967295"));

}  // namespace

}  // namespace update_done_test
