// Every controller told again to an interface manager that has lost them.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "blocks.h"
#include "controllers.h"

namespace replay_test {

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const area here = {"lum_controller_interface"};

class replay : public created_ports {
 protected:
  static const batch &sent() { return im.batches.back(); }
  static const lum_controller_create_request &request() {
    return *static_cast<lum_controller_create_request *>(sent().context);
  }
};

TEST_F(replay, sends_every_controller_in_rsip_order) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(calls({"im_req_by_name"}), ElementsAre("im_req_by_name(188, 4, 0x80000004, 4)"));
  EXPECT_THAT(sent().names,
              ElementsAre("Ots0_3_0_7_0", "Ots0_3_0_7_1", "Ots0_3_0_8_0", "Ots0_3_0_8_1"));
  EXPECT_EQ(request().count, 4);
  EXPECT_EQ(request().intf_type, 188u);
}

TEST_F(replay, entries_are_as_in_a_creation) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  const lum_controller_create_entry &last = request().entries[3];
  EXPECT_EQ(last.id.valid, 1);
  EXPECT_EQ(last.id.slot, 3);
  EXPECT_EQ(last.id.port, 8);
  EXPECT_EQ(last.id.sub_port, 1);
  EXPECT_EQ(last.id.ifhandle, 0u);
  EXPECT_EQ(number_at(last.attrs.bytes, 838, 2), 70u);
}

TEST_F(replay, traces_each_sub_port_and_the_batch) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  const auto lines = traces();
  ASSERT_GE(lines.size(), 8u);
  EXPECT_THAT(
      std::vector(lines.begin(), lines.begin() + 8),
      ElementsAre(
          here.says("ddddd", "controller replay r/s/i/p/s : 0/3/0/7/0 \n"),
          here.says("dddd", "done for rsip = (0 3 0 7)\n"), area{"lum_im"}.says("", "entry "),
          here.says("ds", "controller replay type 188 ifname Ots0_3_0_7_0 is added to list\n"),
          here.says("ddddd", "controller replay r/s/i/p/s : 0/3/0/7/1 \n"),
          here.says("dddd", "done for rsip = (0 3 0 7)\n"), area{"lum_im"}.says("", "entry "),
          here.says("ds", "controller replay type 188 ifname Ots0_3_0_7_1 is added to list\n")));
  EXPECT_THAT(lines.back(), here.says("dds",
                                      "controller op CREATE  batch size 4type 188 ifname "
                                      "Ots0_3_0_7_0 is initiated\n"));
}

TEST_F(replay, takes_the_types_from_the_nodes_and_is_itself_of_type_188) {
  interface_at(first, 0).iftype = 77;
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_EQ(sent().iftype, 77u);
  EXPECT_EQ(request().intf_type, 188u);
  EXPECT_THAT(
      traces(),
      lines_in_order(
          {here.says("ds", "controller replay type 77 ifname Ots0_3_0_7_0 is added to list\n"),
           here.says("ds", "controller replay type 188 ifname Ots0_3_0_7_1 is added to list\n"),
           here.says("dds",
                     "controller op CREATE  batch size 4type 77 ifname Ots0_3_0_7_0 is "
                     "initiated\n")}));
}

TEST_F(replay, reads_no_module_and_touches_no_checkpoint) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(calls({"i2c_read_byte", "i2c_read_block", "chkpt_mapkey", "chkpt_create", "chkpt_get",
                     "chkpt_save"}),
              IsEmpty());
}

TEST_F(replay, clears_the_status_areas) {
  std::memset(data_at(second).dom, 0xAB, 144);
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  const auto *area = reinterpret_cast<const uint8_t *>(data_at(second).dom);
  EXPECT_THAT(std::vector(area, area + 144), Each(0));
}

TEST_F(replay, walks_the_database_without_its_mutex) {
  watch(lum_platform.mutex, "db");
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(
      calls({"wavl_get_first", "wavl_get_next", "pthread_mutex_trylock"}),
      ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)", "wavl_get_next(0x30008, 0)"));
}

TEST_F(replay, carries_the_resync_marker_of_the_context) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_EQ(request().resync, 0u);
  EXPECT_EQ(lum_replay_controllers(), 0u);
  EXPECT_EQ(request().resync, 1u);
}

TEST_F(replay, new_handles_reach_the_ports) {
  EXPECT_EQ(lum_replay_controllers(), 0u);
  batch_reply reply = im.success(im.batches.back());
  for (uint32_t i = 0; i < 4; ++i) reply.elements[i].data = good_reply(0x3001 + i);
  clear_record();
  im.answer(im.batches.back(), reply);
  EXPECT_EQ(interface_at(first, 0).ifhandle, 0x3001u);
  EXPECT_EQ(interface_at(second, 1).ifhandle, 0x3004u);
  EXPECT_THAT(traces(), Contains(here.says("", "In Create done on resync")));
  EXPECT_THAT(calls({"ctrl_op_notify"}),
              ElementsAre("ctrl_op_notify(1, 4, [0x30007 0x30007 0x30008 0x30008], [0 1 0 1], "
                          "[0x3001 0x3002 0x3003 0x3004])"));
}

TEST_F(replay, answer_enables_the_polling_of_a_port_with_each_of_its_entries) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  clear_record();
  im.answer(im.batches.back());
  EXPECT_THAT(traces(), Contains(here.says("d", "enabling DOM for rsip: 0x30007")).Times(2));
  EXPECT_THAT(traces(), Contains(here.says("d", "enabling DOM for rsip: 0x30008")).Times(2));
}

TEST_F(replay, answer_enables_a_ports_polling_with_its_first_entry) {
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  data_at(first).is_dom_enabled = 0;
  data_at(first).inserted = 0;
  bool looked = false;
  at_trace = [&](const trace_line &line) {
    if (line.text.rfind("Controller Created", 0) != 0 || interface_at(first, 0).ifhandle != 0x3001)
      return;
    looked = true;
    EXPECT_EQ(data_at(first).is_dom_enabled, 1);
    EXPECT_EQ(data_at(first).inserted, 1u);
  };
  batch_reply reply = im.success(im.batches.back());
  reply.elements[0].data = good_reply(0x3001);
  im.answer(im.batches.back(), reply);
  EXPECT_TRUE(looked);
}

TEST_F(replay, refused_is_traced_and_returned) {
  script.fail("im_req_by_name", 1, 0x1F);
  EXPECT_EQ(lum_replay_ots_controllers(), 0x1Fu);
  EXPECT_THAT(traces().back(), here.complains("ddsd",
                                              "controller op CREATE  batch size 4type 188 "
                                              "ifname Ots0_3_0_7_0 is failed, rc:0x1f\n"));
}

TEST_F(replay, without_memory_returns_12_with_the_texts_of_a_creation) {
  for (const unsigned nth : {1u, 2u, 3u, 4u}) {
    const block_watch blocks;
    script.forget();
    script.fail("calloc", nth, 1);
    EXPECT_EQ(lum_replay_ots_controllers(), 12u);
    EXPECT_THAT(blocks.live(), IsEmpty());
  }
  EXPECT_THAT(traces(),
              ElementsAre(here.complains("", "failed to allocate memory for ifname array\n"),
                          here.complains("", "failed to allocate memory for iftype array\n")));
}

// ---- The platform data's count and the database ----

TEST_F(replay, with_an_empty_platform_count_sends_nothing_and_returns_0_after_the_error_trace) {
  lum_dec_ots_cntrs(4);
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(traces(),
              ElementsAre(here.complains("", "Number of controllers is 0 nothing to replay!\n")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(replay, counter_smaller_than_the_database_replays_no_more_than_it_says) {
  lum_dec_ots_cntrs(1);
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_EQ(sent().count, 3u);
  EXPECT_THAT(sent().names, ElementsAre("Ots0_3_0_7_0", "Ots0_3_0_7_1", "Ots0_3_0_8_0"));
}

TEST_F(replay, counter_larger_than_the_database_leaves_empty_entries_at_the_end) {
  lum_inc_ots_cntrs(2);
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_EQ(sent().count, 6u);
  EXPECT_EQ(sent().names[3], "Ots0_3_0_8_1");
  EXPECT_EQ(sent().names[4], std::nullopt);
  EXPECT_EQ(request().entries[5].id.valid, 0);
}

TEST(replay_without_ports, counter_without_a_port_sends_nothing) {
  ASSERT_EQ(boot(), 0u);
  lum_inc_ots_cntrs(4);
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(im.batches, IsEmpty());
}

TEST(replay_without_ports, counter_that_no_memory_can_hold_returns_12) {
  ASSERT_EQ(boot(), 0u);
  lum_inc_ots_cntrs(0xFFFFFFFF);
  script.fail("calloc", 2, 1);
  EXPECT_EQ(lum_replay_ots_controllers(), 12u);
}

// ---- The call that clients make ----

class replay_call : public replay {};

TEST_F(replay_call, traces_its_beginning_and_its_end) {
  EXPECT_EQ(lum_replay_controllers(), 0u);
  EXPECT_THAT(traces().front(), area{"lum_api"}.says("", "Replaying controllers for all ports\n"));
  EXPECT_THAT(traces().back(),
              area{"lum_api"}.says("d", "Done with replaying controllers for all ports rc: 0\n"));
}

TEST_F(replay_call, returns_and_traces_the_replays_result) {
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(lum_replay_controllers(), 31u);
  EXPECT_THAT(traces().back(),
              area{"lum_api"}.says("d", "Done with replaying controllers for all ports rc: 31\n"));
}

TEST_F(replay_call, leaves_the_resync_marker_set_until_resync_slot_or_creation) {
  const auto resync = [] { return lum_get_ctx()->resync; };
  EXPECT_EQ(lum_replay_controllers(), 0u);
  EXPECT_EQ(resync(), 1u);
  lum_resync_with_ea();
  EXPECT_EQ(resync(), 0u);
  EXPECT_EQ(lum_replay_controllers(), 0u);
  const lum_slot_props slot = {1, 2};
  EXPECT_EQ(lum_plat_init(0, 4, 0, &slot), 0u);
  EXPECT_EQ(resync(), 0u);
  EXPECT_EQ(lum_replay_controllers(), 0u);
  EXPECT_EQ(lum_create_ports(0, nullptr), 0u);
  EXPECT_EQ(resync(), 0u);
}

}  // namespace

}  // namespace replay_test
