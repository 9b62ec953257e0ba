// Create batches built from the ports database.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "blocks.h"
#include "checkpoints.h"
#include "controllers.h"

namespace orchestration_test {

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

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

TEST_F(orchestration, create_has_done_with_a_port_before_it_begins_the_next) {
  EXPECT_EQ(create({9, 7}), 0u);
  EXPECT_THAT(
      traces(),
      lines_in_order({here.says("dddd", "controller CREATE r/s/i/p : 0/3/0/9 \n"),
                      here.says("dddd", "controller CREATE r/s/i/p : 0/3/0/9 \n"),
                      here.says("dd", "vendor info to be updated for rsip: 0x30009 inserted:1\n"),
                      here.says("dd", "checkpoint created for rsip: 0x30009 rc 0\n"),
                      here.says("dddd", "controller CREATE r/s/i/p : 0/3/0/7 \n"),
                      here.says("dddd", "controller CREATE r/s/i/p : 0/3/0/7 \n"),
                      here.says("dd", "vendor info to be updated for rsip: 0x30007 inserted:1\n"),
                      here.says("dd", "checkpoint created for rsip: 0x30007 rc 0\n")}));
}

TEST_F(orchestration, create_takes_the_types_from_the_node_and_is_itself_of_type_188) {
  interface_at(rsip, 0).iftype = 77;
  EXPECT_EQ(create({7}), 0u);
  EXPECT_EQ(im.batches.at(0).iftype, 77u);
  EXPECT_EQ(sent_create().intf_type, 188u);
  EXPECT_THAT(traces(),
              lines_in_order(
                  {here.says("ds", "controller CREATE type 77 ifname Ots0_3_0_7_0 is initiated\n"),
                   here.says("ds", "controller CREATE type 188 ifname Ots0_3_0_7_1 is initiated\n"),
                   here.says("dds",
                             "controller op CREATE  batch size 2type 77 ifname Ots0_3_0_7_0 is "
                             "initiated\n")}));
}

TEST_F(orchestration, port_listed_twice_is_created_twice_with_one_checkpoint) {
  EXPECT_EQ(create({7, 7}), 0u);
  EXPECT_THAT(im.batches.at(0).names,
              ElementsAre("Ots0_3_0_7_0", "Ots0_3_0_7_1", "Ots0_3_0_7_0", "Ots0_3_0_7_1"));
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(entry(i).id.valid, 1) << i;
  EXPECT_THAT(
      traces(),
      lines_in_order({here.says("dd", "checkpoint created for rsip: 0x30007 rc 0\n"),
                      area{"lum_chkpt"}.says(
                          "dd", "chkpt_id 0x501 for 0x30007 already exist, no need to create\n"),
                      here.says("dd", "checkpoint created for rsip: 0x30007 rc 0\n")}));
  EXPECT_THAT(calls({"chkpt_create"}), ElementsAre("chkpt_create(0xc0de, 0x30007)"));
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

}  // namespace

}  // namespace orchestration_test
