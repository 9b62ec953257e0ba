// Slots and ports come and go.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "blocks.h"
#include "controllers.h"

namespace lifecycle_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

const area lum_api = {"lum_api"};

class slots : public running_library {
 protected:
  static constexpr lum_slot_props four_ports = {1, 4};
};

// Whether slot 3 was in use at each line that begins so.
std::vector<uint32_t> used_at(const char *beginning, const std::function<void()> &work) {
  std::vector<uint32_t> used;
  at_trace = [&](const trace_line &line) {
    if (line.text.rfind(beginning, 0) == 0) used.push_back(lum_plat_is_slot_used(3));
  };
  work();
  at_trace = nullptr;
  return used;
}

// ---- Slots ----

TEST_F(slots, opening_traces_the_place_and_returns_0) {
  EXPECT_EQ(lum_plat_init(1, 3, 2, &four_ports), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 1/3/2/\n")));
  EXPECT_THAT(calls(), ElementsAre("lum_ctx_derive_hw_nodeid(1, 3, 2)"));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
}

TEST_F(slots, opening_clears_the_resync_marker) {
  lum_get_ctx()->resync = 1;
  EXPECT_EQ(lum_plat_init(0, 3, 0, &four_ports), 0u);
  EXPECT_EQ(lum_get_ctx()->resync, 0u);
}

TEST_F(slots, opening_is_traced_before_it_begins_and_closing_when_it_is_done) {
  EXPECT_THAT(used_at("LUM_API: entry", [] { lum_plat_init(0, 3, 0, &four_ports); }),
              ElementsAre(0));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  EXPECT_THAT(used_at("exit: ", [] { lum_plat_deinit(0, 3, 0); }), ElementsAre(0));
}

TEST_F(slots, opening_cuts_slot_and_instance_to_16_bits) {
  EXPECT_EQ(lum_plat_init(0, 0x10003, 0x20001, &four_ports), 0u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/65539/131073/\n")));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  lum_plat_deinit(0, 0x50003, 0x60001);
  EXPECT_EQ(lum_plat_is_slot_used(3), 0u);
}

TEST_F(slots, failing_node_id_is_traced_and_returned_with_the_slot_open) {
  script.fail("lum_ctx_derive_hw_nodeid", 1, 19);
  EXPECT_EQ(lum_plat_init(0, 3, 0, &four_ports), 19u);
  EXPECT_THAT(
      traces().back(),
      lum_api.complains("ds", "lum_platform_ctx_derive_hw_nodeid failed rc:0x13[error 19]\n"));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
}

TEST_F(slots, closing_traces_its_end_and_returns_0) {
  EXPECT_EQ(lum_plat_init(0, 3, 0, &four_ports), 0u);
  clear_record();
  EXPECT_EQ(lum_plat_deinit(2, 3, 0), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("dddd", "exit: R/S/I: 2/3/0/ rc: 0\n")));
  EXPECT_EQ(lum_plat_is_slot_used(3), 0u);
  EXPECT_EQ(lum_plat_deinit(2, 3, 0), 0u);
}

// ---- Creating ports ----

class creation : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    const lum_slot_props slot = {1, 8};
    lum_plat_init(0, 3, 0, &slot);
    for (const uint32_t port : {7, 8}) modules.at(3, 0, port);
    clear_record();
  }
  static cerrno create(const std::vector<lum_port_props> &props) {
    return lum_create_ports(static_cast<uint32_t>(props.size()), props.data());
  }
};

TEST_F(creation, steps_come_in_order) {
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 0u);
  EXPECT_THAT(
      traces(),
      lines_in_order(
          {lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"),
           area{"lum_defines"}.says("dd", "entry s: 3 i:0\n"),
           lum_api.says("ddd", "Creating Ports inside Port-DB for R/S/I: 0/3/0\n"),
           area{"lum_pd_data"}.says("d", "Succesfullly Added  Port=7 to ports-DB:\n"),
           area{"lum_pd_data"}.says("d", "Succesfullly Added  Port=8 to ports-DB:\n"),
           area{"lum_ports_db"}.says(
               "dd", "insert into lum_port_db wavl tree port_handle 6407, 0x1907\n"),
           area{"lum_ports_db"}.says(
               "dd", "insert into lum_port_db wavl tree port_handle 6408, 0x1908\n"),
           area{"lum_controller_interface"}.says("", "entry\n"),
           area{"lum_controller_interface"}.says("dddd", "controller CREATE r/s/i/p : 0/3/0/7 \n"),
           area{"lum_controller_interface"}.says("dddd", "controller CREATE r/s/i/p : 0/3/0/8 \n"),
           lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc:0\n")}));
}

TEST_F(creation, each_port_gets_its_handle_and_context_cell) {
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 0u);
  EXPECT_EQ(node_at(0x30008).port_handle, handle_for(0x30008));
  EXPECT_EQ(lum_get_port_node_from_port_handle(handle_for(0x30007)), &node_at(0x30007));
  ASSERT_NE(lum_plat_get_sdev_ctx(3, 0, handle_for(0x30008)), nullptr);
  EXPECT_EQ(*lum_plat_get_sdev_ctx(3, 0, handle_for(0x30008)), 0x30008u);
}

TEST_F(creation, each_port_gets_an_error_checking_mutex) {
  EXPECT_EQ(create(props_of({0x30007})), 0u);
  pthread_mutex_t &mutex = data_at(0x30007).port_mutex;
  EXPECT_EQ(pthread_mutex_lock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_lock(&mutex), EDEADLK);
  EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM);
}

TEST_F(creation, mutex_without_its_attributes_is_left_cleared) {
  const pthread_mutex_t cleared = {};
  for (const char *call : {"pthread_mutexattr_init", "pthread_mutexattr_settype"}) {
    script.forget();
    script.fail(call, 1, 22);
    const lum_port_node_info &node = add_port(call[18] == 'i' ? 0x30007 : 0x30008);
    EXPECT_EQ(std::memcmp(&node.data.port_mutex, &cleared, sizeof cleared), 0) << call;
  }
}

TEST_F(creation, traces_rack_0_on_entry_and_uses_the_rack_of_the_last_entry) {
  EXPECT_EQ(create(props_of({0x05030007, 0x02030008})), 0u);
  EXPECT_THAT(traces().front(), lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"));
  EXPECT_THAT(traces().back(), lum_api.says("dddd", "LUM_API: exit: R/S/I: 2/3/0/ rc:0\n"));
  EXPECT_NE(lum_ports_db_find_entry(0x02030007), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(0x05030007), nullptr);
  EXPECT_EQ(im.batches.at(0).names[0], "Ots2_3_0_7_0");
}

TEST_F(creation, with_count_0_creates_nothing_and_calls_the_controller_creation_with_rack_0) {
  const block_watch blocks;
  EXPECT_EQ(lum_create_ports(0, nullptr), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/0/0/\n"),
                                    area{"lum_defines"}.says("dd", "entry s: 0 i:0\n"),
                                    lum_api.says("ddd",
                                                 "Creating Ports inside Port-DB for R/S/I: "
                                                 "0/0/0\n"),
                                    lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/0/0/ rc:0\n")));
  EXPECT_THAT(im.batches, IsEmpty());
  // Two empty arrays; request, entries, names and types of the empty batch.
  EXPECT_EQ(blocks.taken(), 6u);
}

TEST_F(creation, clears_the_resync_marker) {
  lum_get_ctx()->resync = 1;
  EXPECT_EQ(create(props_of({0x30007})), 0u);
  EXPECT_EQ(lum_get_ctx()->resync, 0u);
}

TEST_F(creation, without_memory_returns_12_with_nothing_left_and_no_further_trace) {
  for (const unsigned nth : {1u, 2u}) {
    const block_watch blocks;
    script.forget();
    script.fail("calloc", nth, 1);
    clear_record();
    EXPECT_EQ(create(props_of({0x30007})), 12u);
    EXPECT_THAT(blocks.live(), IsEmpty());
    EXPECT_THAT(traces(), Not(Contains(starting("Creating Ports"))));
    EXPECT_THAT(traces(), Not(Contains(starting("LUM_API: exit"))));
  }
  EXPECT_THAT(traces(), Not(Contains(an_error())));
}

TEST_F(creation, refused_batch_is_traced_with_the_last_rsip_and_returned) {
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 31u);
  EXPECT_THAT(
      traces(),
      lines_in_order({lum_api.complains("d", "OTS controller create failed for rsip: (0x30008)"),
                      lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc:31\n")}));
}

TEST_F(creation, port_handle_is_that_of_the_slot_table_cut_to_16_bits) {
  auto props = props_of({0x30007});
  props[0].port_handle = 0x54321;
  EXPECT_EQ(create(props), 0u);
  EXPECT_EQ(node_at(0x30007).port_handle, 0x4321u);
}

TEST_F(creation, slot_out_of_range_has_handle_0_and_touches_no_table) {
  EXPECT_EQ(create(props_of({0x00FF0507})), 0u);
  EXPECT_EQ(node_at(0x00FF0507).port_handle, 0u);
}

// ---- Many ports, and ports of another slot ----

TEST_F(creation, properties_are_told_with_the_count_cut_to_16_bits) {
  auto props = props_of({0x30007});
  props.resize(0x10001);
  script.fail("calloc", 1, 1);
  EXPECT_EQ(create(props), 12u);
  const area lum_defines = {"lum_defines"};
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"),
                  lum_defines.says("dd", "entry s: 3 i:0\n"),
                  lum_defines.says("ddd",
                                   "port_porterties init for port_idx:7 port_handle:6407 "
                                   "rsip: 0x30007\n"),
                  lum_defines.says("d", "port_porterties init done for port rsip: 0x30007\n")));
}

TEST_F(creation, count_of_65536_tells_no_properties) {
  auto props = props_of({0x30007});
  props.resize(0x10000);
  script.fail("calloc", 1, 1);
  EXPECT_EQ(create(props), 12u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"),
                                    area{"lum_defines"}.says("dd", "entry s: 3 i:0\n")));
}

TEST_F(creation, puts_all_ports_on_the_slot_and_instance_of_the_last_entry) {
  const lum_slot_props slot = {1, 8};
  lum_plat_init(0, 4, 1, &slot);
  auto other = props_of({0x40108});
  other[0].port_handle = 0x55;
  lum_port_properties_init(4, 1, 1, other.data());
  clear_record();
  EXPECT_EQ(create(props_of({0x30007, 0x40108})), 0u);
  EXPECT_THAT(
      traces(),
      lines_in_order({lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"),
                      lum_api.says("ddd", "Creating Ports inside Port-DB for R/S/I: 0/4/1\n"),
                      lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/4/1/ rc:0\n")}));
  EXPECT_EQ(lum_ports_db_find_entry(0x30007), nullptr);
  EXPECT_EQ(node_at(0x40107).port_handle, handle_for(0x30007));
  EXPECT_EQ(node_at(0x40108).port_handle, 0x55u);
  ASSERT_NE(lum_plat_get_sdev_ctx(3, 0, handle_for(0x30007)), nullptr);
  EXPECT_EQ(*lum_plat_get_sdev_ctx(3, 0, handle_for(0x30007)), 0x30007u);
}

}  // namespace

}  // namespace lifecycle_test
