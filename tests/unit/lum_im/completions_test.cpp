// The interface manager's answers to create batches, and what becomes of the ports.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "blocks.h"
#include "controllers.h"

namespace completions_test {

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t first = 0x30007;
constexpr uint32_t second = 0x30008;
const area lum_im = {"lum_im"};
const area interface_area = {"lum_controller_interface"};

// Ports 7 and 8 whose create batch of four waits for its answer.
class create_completion : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    modules.at(3, 0, 7);
    modules.at(3, 0, 8);
    add_port(first);
    add_port(second);
    const uint32_t ports[] = {7, 8};
    ASSERT_EQ(lum_ots_controllers_create(0, 3, 0, 2, ports), 0u);
    clear_record();
  }
  static batch &sent() { return im.batches.at(0); }
  // Success for all but one element.
  static batch_reply with_failed(std::size_t index, cerrno result) {
    batch_reply reply = im.success(sent());
    reply.elements[index].result = result;
    return reply;
  }
  static std::vector<uint32_t> created_flags() {
    return {interface_at(first, 0).created, interface_at(first, 1).created,
            interface_at(second, 0).created, interface_at(second, 1).created};
  }
};

// ---- The answer ----

TEST_F(create_completion, without_a_reply_or_context_is_traced_and_frees_nothing) {
  const block_watch blocks;
  auto *request = create_request({controller(first, 0)});
  imca_reply_info_type reply = {};
  lum_im_create_complete_resp_cb(nullptr, request);
  lum_im_create_complete_resp_cb(&reply, nullptr);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          lum_im.complains("DD", "invalid info:(nil) or cb context:" + address(request)),
          lum_im.complains("DD", "invalid info:" + address(&reply) + " or cb context:(nil)")));
  EXPECT_EQ(blocks.live().size(), 2u);
  free_request(request);
}

TEST_F(create_completion, traces_the_count_and_each_creation) {
  im.answer(sent());
  const auto lines = traces();
  ASSERT_GE(lines.size(), 5u);
  EXPECT_THAT(
      std::vector(lines.begin(), lines.begin() + 5),
      ElementsAre(lum_im.says("sD",
                              "Inside lum_im_create_complete_resp_cb, IM OC-Create Response with "
                              "Count 4"),
                  lum_im.says("ds", "creation of interface 0x1001[Ots0_3_0_7_0] is done"),
                  lum_im.says("ds", "creation of interface 0x1002[Ots0_3_0_7_1] is done"),
                  lum_im.says("ds", "creation of interface 0x1003[Ots0_3_0_8_0] is done"),
                  lum_im.says("ds", "creation of interface 0x1004[Ots0_3_0_8_1] is done")));
}

TEST_F(create_completion, writes_the_handles_into_the_reply_and_the_nodes) {
  EXPECT_THAT(im.answer(sent()), ElementsAre(0x1001, 0x1002, 0x1003, 0x1004));
  EXPECT_EQ(interface_at(first, 0).ifhandle, 0x1001u);
  EXPECT_EQ(interface_at(first, 1).ifhandle, 0x1002u);
  EXPECT_EQ(interface_at(second, 0).ifhandle, 0x1003u);
  EXPECT_EQ(interface_at(second, 1).ifhandle, 0x1004u);
}

TEST_F(create_completion, each_reply_is_decoded_and_released) {
  im.answer(sent());
  EXPECT_THAT(calls({"create_reply_decode", "create_reply_free"}).size(), 8u);
  EXPECT_THAT(calls({"create_reply_decode", "create_reply_free"})[1], "create_reply_free()");
}

TEST_F(create_completion, reply_with_element_count_0_works_through_the_entries_of_the_request) {
  im.answer(sent(), batch_reply{});
  EXPECT_THAT(traces(),
              lines_in_order({lum_im.says("sD",
                                          "Inside lum_im_create_complete_resp_cb, IM "
                                          "OC-Create Response with Count 0"),
                              interface_area.says("dddddd",
                                                  "Controller Created Intf_type 188 ifhandle 0x0 "
                                                  "for rack 0 slot 3 inst 0 port 8")}));
  EXPECT_EQ(interface_at(first, 0).ifhandle, 0u);
  EXPECT_EQ(interface_at(first, 0).created, 1u);
  EXPECT_EQ(interface_at(second, 1).created, 1u);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x0 0x0 0x0 0x0])"));
}

TEST_F(create_completion, reply_with_element_count_0_records_names_but_no_handles) {
  im.answer(sent(), batch_reply{});
  for (const uint32_t rsip : {first, second}) {
    for (const uint32_t sub_port : {0, 1}) {
      EXPECT_EQ(data_at(rsip).device_id[sub_port].valid, 0xDu);
      EXPECT_EQ(interface_at(rsip, sub_port).ifhandle, 0u);
    }
  }
  EXPECT_THAT(calls({"pm_ui_port_create"}),
              ElementsAre("pm_ui_port_create(188, 0x0, \"Ots0_3_0_7_0\")"))
      << "the others find handle 0 taken";
}

TEST_F(create_completion, reply_of_fewer_elements_than_the_request_leaves_the_others_handle_0) {
  batch_reply reply = im.success(sent());
  reply.elements.resize(2);
  im.answer(sent(), reply);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x1001 0x1002 0x0 0x0])"));
  EXPECT_THAT(created_flags(), ElementsAre(1, 1, 1, 1));
}

TEST_F(create_completion, benign_element_is_skipped_and_the_rest_completes_normally) {
  im.answer(sent(), with_failed(1, 0x809A4200));
  EXPECT_THAT(traces(), Contains(lum_im.complains(
                            "sds",
                            "Error in creation of Ots0_3_0_7_1 is failed:rc:0x809a4200[error "
                            "2157593088]")));
  EXPECT_EQ(interface_at(first, 1).ifhandle, 0u);
  EXPECT_EQ(interface_at(first, 1).created, 1u);
  EXPECT_EQ(interface_at(second, 1).ifhandle, 0x1004u);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x1001 0x0 0x1003 0x1004])"));
}

TEST_F(create_completion, benign_element_is_not_decoded_and_gets_no_handle) {
  EXPECT_THAT(im.answer(sent(), with_failed(1, 0x809A4200)),
              ElementsAre(0x1001, 0, 0x1003, 0x1004));
  EXPECT_EQ(calls({"create_reply_decode"}).size(), 3u);
  EXPECT_THAT(traces(), Contains(starting("creation of interface")).Times(3));
  EXPECT_THAT(traces(),
              Not(Contains(lum_im.says("ds", "creation of interface 0x0[Ots0_3_0_7_1] is done"))));
}

TEST_F(create_completion, failed_element_with_a_proper_name_ends_the_answer_there) {
  im.answer(sent(), with_failed(1, 5));
  EXPECT_THAT(
      traces(),
      ElementsAre(
          lum_im.says("sD",
                      "Inside lum_im_create_complete_resp_cb, IM OC-Create Response "
                      "with Count 4"),
          lum_im.says("ds", "creation of interface 0x1001[Ots0_3_0_7_0] is done"),
          lum_im.complains("sds", "Error in creation of Ots0_3_0_7_1 is failed:rc:0x5[error 5]")));
  EXPECT_EQ(interface_at(first, 0).created, 0u);
  EXPECT_THAT(calls({"ctrl_op_notify", "led_set_state"}), IsEmpty());
}

TEST_F(create_completion, batch_error_counts_for_every_element_and_ends_the_answer_at_the_first) {
  batch_reply reply = im.success(sent());
  reply.batch_error = 7;
  im.answer(sent(), reply);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          lum_im.says("sD",
                      "Inside lum_im_create_complete_resp_cb, IM OC-Create Response with Count 4"),
          lum_im.complains("sds", "Error in creation of Ots0_3_0_7_0 is failed:rc:0x0[error 0]")));
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_THAT(created_flags(), Each(0));
  EXPECT_EQ(im.batches.size(), 1u);
}

TEST_F(create_completion, batch_error_with_benign_elements_completes) {
  batch_reply reply = im.success(sent());
  reply.batch_error = 7;
  for (element_reply &element : reply.elements) element.result = 0x809A4200;
  im.answer(sent(), reply);
  EXPECT_EQ(interface_at(second, 1).created, 1u);
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
}

// ---- Created again ----

// The port that a name which cannot be parsed comes to.
class created_again : public create_completion {
 protected:
  void SetUp() override {
    create_completion::SetUp();
    modules.at(0, 0, 0);
    add_port(0);
    clear_record();
  }
  static batch_reply with_name(std::optional<std::string> name) {
    batch_reply reply = with_failed(0, 5);
    reply.elements[0].name = std::move(name);
    return reply;
  }
};

TEST_F(created_again, failed_element_whose_name_does_not_parse_triggers_a_creation) {
  im.answer(sent(), with_name("nonsense"));
  EXPECT_THAT(traces(),
              lines_in_order({lum_im.complains(
                                  "sds", "Error in creation of nonsense is failed:rc:0x5[error 5]"),
                              lum_im.says("dd",
                                          "Triggering OC-Controller CREATE for inst 0, with number "
                                          "of Controllers = 4")}));
  EXPECT_EQ(interface_at(first, 0).created, 0u);
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
}

TEST_F(created_again, none_of_the_replys_elements_is_looked_at_any_more) {
  im.answer(sent(), with_name("nonsense"));
  EXPECT_THAT(calls({"create_reply_decode"}), IsEmpty());
  EXPECT_THAT(traces(), Not(Contains(starting("creation of interface"))));
  EXPECT_THAT(created_flags(), Each(0));
}

TEST_F(created_again, refused_creation_is_traced_and_tells_nobody) {
  script.fail("im_req_by_name", 1, 31);
  im.answer(sent(), with_name("nonsense"));
  EXPECT_THAT(traces().back(),
              interface_area.complains("ddsd",
                                       "controller op CREATE  batch size 8type 188 ifname "
                                       "Ots0_0_0_0_0 is failed, rc:0x1f\n"));
  EXPECT_THAT(calls({"ctrl_op_notify"}), IsEmpty());
  EXPECT_EQ(im.batches.size(), 1u);
}

TEST_F(created_again, batch_has_the_replys_count_and_one_known_port) {
  im.answer(sent(), with_name("nonsense"));
  ASSERT_EQ(im.batches.size(), 2u);
  const batch &again = im.batches[1];
  EXPECT_EQ(again.count, 8u);
  EXPECT_EQ(again.names[0], "Ots0_0_0_0_0");
  EXPECT_EQ(again.names[1], "Ots0_0_0_0_1");
  for (std::size_t i = 2; i < 8; ++i) EXPECT_EQ(again.names[i], std::nullopt);
}

TEST_F(created_again, null_name_does_not_parse_either) {
  im.answer(sent(), with_name(std::nullopt));
  EXPECT_THAT(traces(),
              Contains(lum_im.complains("sds", "Error in creation of  is failed:rc:0x5[error 5]")));
  EXPECT_EQ(im.batches.size(), 2u);
}

TEST_F(created_again, rack_that_the_failed_parse_left_is_used) {
  const uint32_t port = 0, handle = 0x77;
  lum_add_device_to_ports_db(2, 0, 0, 1, &port, &handle);
  script.fail("nodeid_extract_slot_fields", 1, 93);
  im.answer(sent(), with_name("Ots2_3_1_7_0"));
  ASSERT_EQ(im.batches.size(), 2u);
  EXPECT_EQ(im.batches[1].names[0], "Ots2_0_0_0_0");
}

TEST_F(created_again, without_such_a_port_nothing_is_sent) {
  ASSERT_EQ(lum_ports_db_remove_entry(0), 0u);
  im.answer(sent(), with_name("nonsense"));
  EXPECT_EQ(im.batches.size(), 1u);
}

TEST_F(created_again, count_far_beyond_the_reply_is_out_of_memory_and_harmless) {
  batch_reply reply = with_name("nonsense");
  reply.count = INT64_MAX;
  im.answer(sent(), reply);
  EXPECT_THAT(traces(), Contains(lum_im.says("dd",
                                             "Triggering OC-Controller CREATE for inst 0, "
                                             "with number of Controllers = -1")));
  EXPECT_EQ(im.batches.size(), 1u);
}

// ---- Replies that make no sense ----

using create_completion_death = create_completion;

TEST_F(create_completion_death, missing_reply_data_ends_the_process) {
  batch_reply reply = im.success(sent());
  reply.elements[2].without_data = true;
  EXPECT_DEATH(im.answer(sent(), reply),
               "621: void lum_im_create_complete_resp_cb\\(imca_reply_info_type \\*, void \\*\\): "
               "Assertion `0' failed");
}

constexpr const char *malformed =
    "631: void lum_im_create_complete_resp_cb\\(imca_reply_info_type \\*, void \\*\\): Assertion "
    "`CERR_IS_OK\\(rc\\) && wiredef_icpe_ext_intf_create_reply_data_have_required\\( "
    "&decoded_data\\)' failed";

TEST_F(create_completion_death, undecodable_reply_data_ends_the_process) {
  batch_reply reply = im.success(sent());
  reply.elements[0].data = {0xFF, 0xFF, 0xFF};
  EXPECT_DEATH(im.answer(sent(), reply), malformed);
}

TEST_F(create_completion_death, failing_decoder_ends_the_process) {
  script.fail("create_reply_decode", 1, 12);
  EXPECT_DEATH(im.answer(sent()), malformed);
}

TEST_F(create_completion_death, missing_required_member_ends_the_process) {
  batch_reply reply = im.success(sent());
  reply.elements[3].data = reply_without_handle();
  EXPECT_DEATH(im.answer(sent(), reply), malformed);
}

TEST_F(create_completion, failed_element_needs_no_reply_data) {
  batch_reply reply = with_failed(0, 0x809A4200);
  reply.elements[0].without_data = true;
  im.answer(sent(), reply);
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
}

TEST_F(create_completion, replys_count_larger_than_the_requests_touches_no_further_entry) {
  batch_reply reply = im.success(sent());
  for (uint32_t i = 0; i < 60; ++i) {
    reply.elements.push_back({0, "Ots0_3_0_9_0", good_reply(0x2000 + i), false});
  }
  const auto ifhandles = im.answer(sent(), reply);
  EXPECT_EQ(ifhandles.at(63), 0x203Bu);
  EXPECT_EQ(interface_at(second, 1).ifhandle, 0x1004u);
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x1001 0x1002 0x1003 0x1004])"));
}

TEST_F(create_completion, index_of_16_bits_comes_to_an_end) {
  batch_reply reply;
  reply.elements.resize(0x10003, {0x809A4200, std::nullopt, {}, true});
  im.answer(sent(), reply);
  const auto lines = traces();
  EXPECT_THAT(lines.front(), lum_im.says("sD",
                                         "Inside lum_im_create_complete_resp_cb, IM OC-Create "
                                         "Response with Count 65539"));
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const trace_line &line) { return line.channel == "lum_error"; }),
            0x10000);
  EXPECT_EQ(calls({"ctrl_op_notify"}).size(), 1u);
  EXPECT_EQ(interface_at(second, 1).created, 1u);
}

TEST_F(create_completion, null_names_are_traced_as_empty) {
  batch_reply reply = im.success(sent());
  for (element_reply &element : reply.elements) element.name.reset();
  im.answer(sent(), reply);
  EXPECT_THAT(traces(), Contains(lum_im.says("ds", "creation of interface 0x1001[] is done")));
}

TEST_F(create_completion, reply_without_arrays_but_the_data_completes) {
  const auto encoded = good_reply(0x55);
  const uint8_t *data[] = {encoded.data()};
  const uint32_t sizes[] = {static_cast<uint32_t>(encoded.size())};
  imca_reply_info_type reply = {};
  reply.count = 1;
  reply.data = data;
  reply.data_sizes = sizes;
  lum_im_create_complete_resp_cb(&reply, sent().context);
  EXPECT_EQ(interface_at(first, 0).ifhandle, 0x55u);
}

}  // namespace

}  // namespace completions_test
