// Batches built from the ports database.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "blocks.h"
#include "checkpoints.h"
#include "controllers.h"

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t rsip = 0x30007;
const area here = {"lum_controller_interface"};

// Ports 7, 8 and 9 on slot 3, with modules, without controllers.
class orchestration : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    for (const uint32_t port : {7, 8, 9}) {
      modules.at(3, 0, port);
      add_port(rsip_at(3, 0, port));
    }
    clear_record();
  }
  static cerrno create(const std::vector<uint32_t> &ports) {
    return lum_ots_controllers_create(0, 3, 0, static_cast<uint32_t>(ports.size()), ports.data());
  }
  static cerrno remove(const std::vector<uint32_t> &ports) {
    return lum_ots_controllers_delete(0, 3, 0, static_cast<uint32_t>(ports.size()), ports.data());
  }
  static const lum_controller_create_request &sent_create() {
    return *static_cast<lum_controller_create_request *>(im.batches.at(0).context);
  }
  static const lum_controller_create_entry &entry(std::size_t index) {
    return sent_create().entries[index];
  }
};

// ---- Create ----

TEST_F(orchestration, create_fills_the_request) {
  lum_get_ctx()->resync = 1;
  EXPECT_EQ(create({8}), 0u);
  EXPECT_EQ(sent_create().intf_type, 188u);
  EXPECT_EQ(sent_create().count, 2);
  EXPECT_EQ(sent_create().resync, 1u);
  EXPECT_EQ(im.batches[0].iftype, 188u);
  EXPECT_EQ(im.batches[0].count, 2u);
}

TEST_F(orchestration, create_fills_each_entry) {
  const uint32_t port = 9, handle = 0x99;
  lum_add_device_to_ports_db(1, 5, 2, 1, &port, &handle);
  EXPECT_EQ(lum_ots_controllers_create(1, 5, 2, 1, &port), 0u);
  const lum_controller_create_entry &second = entry(1);
  EXPECT_EQ(second.id.valid, 1);
  EXPECT_EQ(second.id.rack, 1);
  EXPECT_EQ(second.id.slot, 5);
  EXPECT_EQ(second.id.instance, 2);
  EXPECT_EQ(second.id.port, 9);
  EXPECT_EQ(second.id.sub_port, 1);
  EXPECT_EQ(second.id.ifhandle, 0u);
  EXPECT_EQ(number_at(second.attrs.bytes, 838, 2), 70u);
  EXPECT_EQ(number_at(entry(0).attrs.bytes, 838, 2), 30u);
}

// A rsip's four bytes, big-endian, directly behind the valid byte.
TEST_F(orchestration, entry_reads_as_the_ports_rsip) {
  const uint32_t port = 9, handle = 0x99;
  lum_add_device_to_ports_db(1, 5, 2, 1, &port, &handle);
  EXPECT_EQ(lum_ots_controllers_create(1, 5, 2, 1, &port), 0u);
  uint8_t bytes[6];
  std::memcpy(bytes, &entry(0), sizeof bytes);
  EXPECT_THAT(bytes, ElementsAre(1, 1, 5, 2, 9, 0));
}

TEST_F(orchestration, create_takes_the_ports_in_list_order_sub_port_0_first) {
  EXPECT_EQ(create({9, 7}), 0u);
  EXPECT_THAT(im.batches.at(0).names,
              ElementsAre("Ots0_3_0_9_0", "Ots0_3_0_9_1", "Ots0_3_0_7_0", "Ots0_3_0_7_1"));
}

TEST_F(orchestration, create_for_4_ports_of_which_one_is_unknown_sends_8_with_6_valid_entries) {
  EXPECT_EQ(create({7, 44, 8, 9}), 0u);
  EXPECT_EQ(im.batches.at(0).count, 8u);
  EXPECT_EQ(sent_create().count, 8);
  for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(entry(i).id.valid, 1) << i;
  EXPECT_EQ(entry(2).id.port, 8);
  const auto *last = reinterpret_cast<const uint8_t *>(&entry(6));
  EXPECT_THAT(std::vector(last, last + 2 * sizeof(lum_controller_create_entry)), Each(0));
  EXPECT_EQ(im.batches[0].names[6], std::nullopt);
  EXPECT_EQ(im.batches[0].names[7], std::nullopt);
}

// The empty entries are taken for port 0/0/0/0, which is not there.
TEST_F(orchestration, batch_with_empty_entries_neither_notifies_nor_sets_leds) {
  EXPECT_EQ(create({7, 44}), 0u);
  clear_record();
  im.answer_all();
  EXPECT_EQ(interface_at(rsip, 1).created, 1u);
  EXPECT_THAT(traces().back(), here.says("d", "Port Not Found in DB for rsip=0"));
  EXPECT_THAT(calls({"ctrl_op_notify", "led_set_state"}), IsEmpty());
}

TEST_F(orchestration, create_with_count_0_sends_nothing_and_returns_0) {
  const block_watch blocks;
  EXPECT_EQ(lum_ots_controllers_create(0, 3, 0, 0, nullptr), 0u);
  EXPECT_THAT(im.batches, IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(orchestration, create_of_unknown_ports_only_sends_nothing_and_returns_0) {
  EXPECT_EQ(create({44, 45}), 0u);
  EXPECT_THAT(im.batches, IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(orchestration, create_traces_each_sub_port_then_the_checkpoint_then_the_batch) {
  EXPECT_EQ(create({7}), 0u);
  EXPECT_THAT(
      traces(),
      lines_in_order(
          {here.says("dddd", "controller CREATE r/s/i/p : 0/3/0/7 \n"),
           here.says("dddd", "done for rsip = (0 3 0 7)\n"), area{"lum_im"}.says("", "entry "),
           here.says("ds", "controller CREATE type 188 ifname Ots0_3_0_7_0 is initiated\n"),
           here.says("dddd", "controller CREATE r/s/i/p : 0/3/0/7 \n"),
           here.says("dddd", "done for rsip = (0 3 0 7)\n"), area{"lum_im"}.says("", "entry "),
           here.says("ds", "controller CREATE type 188 ifname Ots0_3_0_7_1 is initiated\n"),
           here.says("dd", "vendor info to be updated for rsip: 0x30007 inserted:1\n"),
           area{"lum_chkpt"}.says("dd", "checkpoint create succeeded: id 0x501, key 0x30007\n"),
           here.says("dd", "checkpoint created for rsip: 0x30007 rc 0\n"),
           area{"lum_im"}.says("d", "controller_create,send im_req_by_name_success,count,2"),
           here.says("dds",
                     "controller op CREATE  batch size 2type 188 ifname Ots0_3_0_7_0 is "
                     "initiated\n")}));
}

TEST_F(orchestration, create_searches_from_the_first_node_for_each_port) {
  EXPECT_EQ(create({8, 7}), 0u);
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next"}),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)", "wavl_get_first(0)"));
}

TEST_F(orchestration, create_clears_the_status_area_and_nothing_else_of_the_readings) {
  std::memset(data_at(rsip).dom, 0xAB, 144);
  data_at(rsip).reserved_1[0] = 0xAB;
  data_at(rsip).port_cfg[0].threshold = 5;
  EXPECT_EQ(create({7}), 0u);
  const auto *area = reinterpret_cast<const uint8_t *>(data_at(rsip).dom);
  EXPECT_THAT(std::vector(area, area + 144), Each(0));
  EXPECT_EQ(data_at(rsip).reserved_1[0], 0xAB);
  EXPECT_EQ(data_at(rsip).port_cfg[0].threshold, 5u);
}

TEST_F(orchestration, create_reads_the_modules_identity_before_the_batch_is_sent) {
  modules.at(3, 0, 7).put_text(0, 166, "SN0007");
  EXPECT_EQ(create({7}), 0u);
  EXPECT_STREQ(data_at(rsip).vendor.vendor_serial_number, "SN0007");
  const auto made = calls({"i2c_read_block", "im_req_by_name"});
  EXPECT_EQ(made.front(), "i2c_read_block(3, 0, 7, 3, 128, 128)");
  EXPECT_EQ(made.back(), "im_req_by_name(188, 2, 0x80000004, 2)");
}

TEST_F(orchestration, create_recovers_the_configuration_of_an_earlier_process) {
  lum_chkpt_record saved = {};
  saved.created = 1;
  saved.key = rsip;
  saved.port_cfg[1].threshold = 77;
  checkpoints.survive(rsip, saved);
  EXPECT_EQ(create({7}), 0u);
  EXPECT_EQ(data_at(rsip).port_cfg[1].threshold, 77u);
}

TEST_F(orchestration, failing_checkpoint_is_only_traced) {
  script.fail("chkpt_create", 1, 5);
  EXPECT_EQ(create({7}), 0u);
  EXPECT_THAT(traces(), Contains(here.says("dd", "checkpoint created for rsip: 0x30007 rc 5\n")));
  EXPECT_EQ(im.batches.size(), 1u);
}

TEST_F(orchestration, failing_module_does_not_stop_the_batch) {
  modules.remove(3, 0, 7);
  EXPECT_EQ(create({7}), 0u);
  EXPECT_EQ(im.batches.size(), 1u);
}

TEST_F(orchestration, refused_create_is_traced_and_returned) {
  script.fail("im_req_by_name", 1, 0x1F);
  EXPECT_EQ(create({7, 8}), 0x1Fu);
  EXPECT_THAT(traces().back(), here.complains("ddsd",
                                              "controller op CREATE  batch size 4type 188 "
                                              "ifname Ots0_3_0_7_0 is failed, rc:0x1f\n"));
}

TEST_F(orchestration, create_without_memory_for_the_request_or_entries_returns_12_untraced) {
  for (const unsigned nth : {1u, 2u}) {
    const block_watch blocks;
    script.forget();
    script.fail("calloc", nth, 1);
    EXPECT_EQ(create({7}), 12u);
    EXPECT_THAT(blocks.live(), IsEmpty());
  }
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(orchestration, create_without_memory_for_the_names_returns_12_traced) {
  const block_watch blocks;
  script.fail("calloc", 3, 1);
  EXPECT_EQ(create({7}), 12u);
  EXPECT_THAT(traces(),
              ElementsAre(here.complains("", "failed to allocate memory for ifname array\n")));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(orchestration, create_without_memory_for_the_types_returns_12_traced) {
  const block_watch blocks;
  script.fail("calloc", 4, 1);
  EXPECT_EQ(create({7}), 12u);
  EXPECT_THAT(traces(),
              ElementsAre(here.complains("", "failed to allocate memory for iftype array\n")));
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(orchestration, create_of_more_ports_than_can_be_counted_returns_12) {
  EXPECT_EQ(lum_ots_controllers_create(0, 3, 0, 0x80000000, nullptr), 12u);
  EXPECT_THAT(calls(), IsEmpty());
}

// ---- Update ----

class update_batch : public orchestration {
 protected:
  void SetUp() override {
    orchestration::SetUp();
    interface_at(rsip, 0).ifhandle = 0x1001;
    interface_at(rsip, 1).ifhandle = 0x1002;
    clear_record();
  }
};

TEST_F(update_batch, sends_both_handles_with_the_same_state) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 4), 0u);
  const batch &sent = im.batches.at(0);
  EXPECT_THAT(sent.ifhandles, ElementsAre(0x1001, 0x1002));
  EXPECT_EQ(sent.element(0)[0], 1);
  EXPECT_EQ(sent.element(0)[1], 1);
  EXPECT_EQ(sent.element(1)[0], 1);
  const auto *request = static_cast<lum_controller_update_request *>(sent.context);
  EXPECT_EQ(request->count, 2);
  EXPECT_EQ(request->state_change, 1u);
  EXPECT_EQ(request->capability_change, 0u);
  EXPECT_EQ(request->attrs, nullptr);
}

TEST_F(update_batch, of_an_unknown_port_sends_two_zero_handles) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 44, 1), 0u);
  EXPECT_THAT(im.batches.at(0).ifhandles, ElementsAre(0, 0));
  EXPECT_THAT(traces(), Not(Contains(an_error())));
}

TEST_F(update_batch, walks_the_whole_database) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next"}),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)",
                          "wavl_get_next(0x30008, 0)", "wavl_get_next(0x30009, 0)"));
}

TEST_F(update_batch, refused_is_traced_and_returned) {
  script.fail("im_update_req_by_ifhandle", 1, 0x1F);
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 0x1Fu);
  EXPECT_THAT(traces().back(),
              here.complains("ddddd", "controller op UPDATE for 0 3 0 7 failed, rc:0x1f\n"));
}

TEST_F(update_batch, without_memory_is_traced_with_errno_and_returns_12) {
  for (const unsigned nth : {1u, 2u}) {
    script.forget();
    script.fail("calloc", nth, 1);
    clear_record();
    EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 12u);
    EXPECT_THAT(traces(), ElementsAre(here.complains("d", "calloc failed with errno: 12\n")));
  }
  EXPECT_THAT(im.batches, IsEmpty());
}

// ---- Delete ----

class delete_batch : public orchestration {
 protected:
  void SetUp() override {
    orchestration::SetUp();
    uint32_t handle = 0x1001;
    for (const uint32_t port : {7, 8, 9}) {
      interface_at(rsip_at(3, 0, port), 0).ifhandle = handle++;
      interface_at(rsip_at(3, 0, port), 1).ifhandle = handle++;
    }
    clear_record();
  }
};

TEST_F(delete_batch, appends_both_sub_ports_of_each_port_in_list_order) {
  EXPECT_EQ(remove({9, 7}), 0u);
  const batch &sent = im.batches.at(0);
  const auto *request = static_cast<lum_controller_delete_request *>(sent.context);
  EXPECT_EQ(request->count, 4);
  EXPECT_EQ(request->zero, nullptr);
  EXPECT_THAT(std::vector(request->ifhandles, request->ifhandles + 4),
              ElementsAre(0x1005, 0x1006, 0x1001, 0x1002));
  EXPECT_EQ(sent.iftype, 188u);
  EXPECT_EQ(sent.names[0], "Ots0_3_0_9_0");
}

TEST_F(delete_batch, traces_the_beginning_and_the_success) {
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_THAT(traces().front(), here.says("ddd", "controller DELETE for 0 3 0 is initiated\n"));
  EXPECT_THAT(traces().back(),
              here.says("dddd", "controller op DELETE  batch size 2for 0 3 0 is initiated\n"));
}

TEST_F(delete_batch, of_an_unknown_port_has_a_count_that_includes_two_zero_handles) {
  interface_at(rsip_at(3, 0, 9), 0).ifhandle = 0;  // so that handle 0 has a name
  EXPECT_EQ(remove({44, 7}), 0u);
  const auto *request = static_cast<lum_controller_delete_request *>(im.batches.at(0).context);
  EXPECT_EQ(request->count, 4);
  EXPECT_THAT(std::vector(request->ifhandles, request->ifhandles + 4),
              ElementsAre(0x1001, 0x1002, 0, 0));
}

TEST_F(delete_batch, with_an_unknown_port_fails_as_no_port_has_handle_0) {
  EXPECT_EQ(remove({44, 7}), 22u);
  EXPECT_THAT(traces(), Contains(area{"lum_im"}.complains(
                            "dds",
                            "controller_delete, lum_get_ifname_from_ctx failed,ifh:0x0,"
                            "rc:0x16[error 22]")));
  EXPECT_THAT(traces().back(), here.complains("ddddd",
                                              "controller op DELETE  batch size 4for 0 3 "
                                              "0 failed, rc:0x16\n"));
  EXPECT_THAT(im.batches, IsEmpty());
}

TEST_F(delete_batch, of_no_port_is_a_bad_request) {
  EXPECT_EQ(remove({}), 22u);
  EXPECT_THAT(traces(), ElementsAre(here.says("ddd", "controller DELETE for 0 3 0 is initiated\n"),
                                    here.complains("ddddd",
                                                   "controller op DELETE  batch size 0for "
                                                   "0 3 0 failed, rc:0x16\n")));
}

TEST_F(delete_batch, port_listed_twice_is_sent_twice) {
  EXPECT_EQ(remove({7, 7}), 0u);
  const auto *request = static_cast<lum_controller_delete_request *>(im.batches.at(0).context);
  EXPECT_THAT(std::vector(request->ifhandles, request->ifhandles + 4),
              ElementsAre(0x1001, 0x1002, 0x1001, 0x1002));
}

TEST_F(delete_batch, walks_the_whole_database_for_each_port) {
  EXPECT_EQ(remove({7}), 0u);
  const auto made = calls({"wavl_get_first", "wavl_get_next"});
  ASSERT_GE(made.size(), 4u);
  EXPECT_THAT(std::vector(made.begin(), made.begin() + 4),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)",
                          "wavl_get_next(0x30008, 0)", "wavl_get_next(0x30009, 0)"));
}

TEST_F(delete_batch, refused_is_traced_and_returned) {
  script.fail("im_req_by_name", 1, 0x1F);
  EXPECT_EQ(remove({7}), 0x1Fu);
  EXPECT_THAT(traces().back(), here.complains("ddddd",
                                              "controller op DELETE  batch size 2for 0 3 "
                                              "0 failed, rc:0x1f\n"));
}

TEST_F(delete_batch, without_memory_is_traced_with_errno_and_returns_12) {
  for (const unsigned nth : {1u, 2u, 3u}) {
    script.forget();
    script.fail("calloc", nth, 1);
    clear_record();
    EXPECT_EQ(remove({7}), 12u);
    EXPECT_THAT(traces(), ElementsAre(here.complains("d", "calloc failed with errno: 12\n")));
  }
  EXPECT_THAT(im.batches, IsEmpty());
}

TEST_F(delete_batch, of_more_ports_than_can_be_counted_returns_12) {
  EXPECT_EQ(lum_ots_controllers_delete(0, 3, 0, 0x80000000, nullptr), 12u);
}

}  // namespace
