// Platform data and port properties.
#include <gmock/gmock.h>

#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "base/locks.h"
#include "library.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t rsip = 0x30007;

// ---- Start-up of the port model ----

TEST(platform_data_init, zeroes_the_database_and_sets_it_up) {
  open_traces();
  std::memset(static_cast<void *>(&lum_platform), 0x11, sizeof lum_platform);
  EXPECT_EQ(lum_platform_data_init(client_manager, 1), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_init(2, 0)"));
  EXPECT_THAT(traces(), ElementsAre(info("LUM PD Data Init\n").of("lum_pd_data"),
                                    info("LUM Structures Init Success\n").of("lum_pd_data")));
  EXPECT_EQ(lum_platform.rsip_count, 0u);
  EXPECT_EQ(lum_platform.port_handle_count, 0u);
}

TEST(platform_data_init, without_a_context_returns_22) {
  open_traces();
  const context_hidden hidden;
  EXPECT_EQ(lum_platform_data_init(client_manager, 0), 22u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(error("context is NULL\n").of("lum_pd_data")));
}

TEST(platform_data_init_death, without_its_database_the_process_ends) {
  script.fail("wavl_init", 1, 12);
  EXPECT_DEATH(lum_platform_data_init(client_manager, 0), "Assertion");
}

// What is traced on the way to the end can only be seen from inside.
TEST(platform_data_init_death, traces_the_failure_before_the_end) {
  EXPECT_EXIT(
      {
        open_traces();
        script.fail("wavl_init", 1, 12);
        signal(SIGABRT, [](int) {
          const bool traced =
              testing::Matches(Contains(error("LUM Structures Init Failed\n")))(traces());
          _exit(traced ? 3 : 4);
        });
        lum_platform_data_init(client_manager, 0);
      },
      testing::ExitedWithCode(3), "");
}

// ---- Adding a device's ports ----

class platform_ports : public running_library {};

TEST_F(platform_ports, each_port_gets_a_node_made_of_the_template) {
  const uint32_t ports[] = {7, 9};
  EXPECT_EQ(lum_platform_ctx_init(1, 3, 2, 2, ports), 0u);
  const lum_port_node_info &node = node_at(0x01030209);
  auto expected = std::make_unique<lum_port_data>();
  expected->rack = 1;
  expected->slot = 3;
  expected->instance = 2;
  expected->port = 9;
  std::strcpy(expected->sub_port[0].ifname, "Ots1_3_2_9_0");
  std::strcpy(expected->sub_port[1].ifname, "Ots1_3_2_9_1");
  expected->sub_port[0].iftype = 188;
  expected->sub_port[1].iftype = 188;
  // The mutex behind the rest is the node's own.
  EXPECT_EQ(std::memcmp(&node.data, expected.get(), offsetof(lum_port_data, port_mutex)), 0);
  EXPECT_STREQ(data_at(0x01030207).sub_port[0].ifname, "Ots1_3_2_7_0");
}

TEST_F(platform_ports, adding_traces_both_names_then_the_port) {
  const uint32_t port = 7;
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &port), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info("construct ifname for rsip 0/3/0/7/0\n"),
                  info("iftype:188 rsip:0/3/0/7/0 ifname 'Ots0_3_0_7_0'\n").of("lum_pd_data"),
                  info("construct ifname for rsip 0/3/0/7/1\n"),
                  info("iftype:188 rsip:0/3/0/7/1 ifname 'Ots0_3_0_7_1'\n"),
                  info("insert into lum_port_db wavl tree rsip: 0x30007\n"),
                  info("Succesfullly Added  Port=7 to ports-DB:\n").of("lum_pd_data")));
}

TEST_F(platform_ports, zero_ports_add_nothing_and_return_0) {
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 0, nullptr), 0u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls({"wavl_insert_thread"}), IsEmpty());
}

TEST_F(platform_ports, adding_without_a_context_returns_22) {
  const context_hidden hidden;
  const uint32_t port = 7;
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &port), 22u);
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 0, &port), 22u);
  EXPECT_THAT(traces(), ElementsAre(error("context is NULL\n"), error("context is NULL\n")));
}

TEST_F(platform_ports, first_failure_ends_the_list_and_keeps_the_ports_before_it) {
  const uint32_t ports[] = {7, 8, 7, 9};
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 4, ports), 14u);
  EXPECT_THAT(traces(),
              lines_in_order({info("Succesfullly Added  Port=8 to ports-DB:\n"),
                              error("Error in adding Port=7 to Optics-DB:\n").of("lum_pd_data"),
                              error("lum_platform_ports_init failed rc:0xe[error 14]\n")}));
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_NE(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 2), nullptr);
  EXPECT_EQ(lum_num_ots_ctrls(), 4u);
}

// ---- Removing a port ----

class port_removal : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    const lum_slot_props slot = {1, 4};
    lum_slot_properties_init(3, 0, &slot);
    lum_port_props props = {};
    props.rsip = rsip;
    props.port_index = 7;
    props.port_handle = 5;
    lum_port_properties_init(3, 0, 1, &props);
    add_port(rsip);
    add_port(rsip + 1);
    keep_mutex();
    clear_record();
  }
  // As the deletion leaves it.
  static void keep_mutex() {
    lum::port_hold hold(data_at(rsip), {"test", 1});
    hold.keep();
  }
};

TEST_F(port_removal, port_without_controllers_is_removed_with_its_properties) {
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 0u);
  EXPECT_THAT(traces(), ElementsAre(info("executing for r/s/i/p: 0/3/0/7\n").of("lum_pd_data"),
                                    info("ports DB delete done, rsip 0x30007\n"),
                                    info("Succesfully removed Port 7 from inst 0 of Ports-DB:\n")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_NE(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
}

TEST_F(port_removal, walks_the_database_from_the_first_node_without_its_mutex) {
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 9), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)",
                                   "wavl_get_next(0x30008, 0)"));
  EXPECT_THAT(traces(), ElementsAre(info("executing for r/s/i/p: 0/3/0/9\n")));
}

TEST_F(port_removal, walk_goes_on_with_the_removed_nodes_successor) {
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 0u);
  EXPECT_THAT(
      calls({"wavl_get_first", "wavl_get_next", "wavl_delete"}),
      testing::UnorderedElementsAre("wavl_get_first(0)", "wavl_delete(0x30007)",
                                    "wavl_get_next(0x30007, 0)", "wavl_get_next(0x30008, 0)"));
}

class port_removal_refused : public port_removal, public testing::WithParamInterface<int> {};

TEST_P(port_removal_refused, port_with_a_controller_created_or_up_stays_and_the_result_is_0) {
  lum_sub_port_intf &interface = data_at(rsip).sub_port[GetParam() / 2];
  (GetParam() % 2 == 0 ? interface.created : interface.controller_up) = 1;
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 0u);
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 1u);
}

INSTANTIATE_TEST_SUITE_P(each_flag, port_removal_refused, testing::Range(0, 4));

TEST_F(port_removal, mutex_that_is_not_held_is_traced_and_the_removal_goes_on) {
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 8), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({error("module access unlock failed with rc 1\n").of("lum_pd_data"),
                              info("Succesfully removed Port 8 from inst 0 of Ports-DB:\n")}));
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 1), nullptr);
}

TEST_F(port_removal, failing_removal_is_traced_and_returned) {
  script.fail("wavl_delete", 1, 1);
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 14u);
  EXPECT_THAT(
      traces(),
      Contains(error("Error in Removing port 7 from inst 0 of Ports-DB:\n").of("lum_pd_data")));
  EXPECT_THAT(traces(),
              Not(Contains(info("Succesfully removed Port 7 from inst 0 of Ports-DB:\n"))));
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 1u);
}

TEST_F(port_removal, rack_must_match_too) {
  EXPECT_EQ(lum_platform_ports_deinit(1, 3, 0, 7), 0u);
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
}

// ---- Slot properties ----

lum_port_props entry(uint32_t index, uint32_t handle) {
  lum_port_props props = {};
  props.rsip = rsip_at(3, 0, index & 0xFF);
  props.port_index = index;
  props.port_handle = handle;
  props.client_words[0] = 0x11;
  props.in_use = 0;
  return props;
}

class slot_table : public testing::Test {
 protected:
  void SetUp() override { open_traces(); }
  static lum_port_props *open(uint32_t capacity, uint32_t used = 1, uint32_t instance = 0) {
    const lum_slot_props props = {used, capacity};
    return lum_slot_properties_init(3, instance, &props);
  }
  static void fill(std::vector<lum_port_props> records) {
    lum_port_properties_init(3, 0, static_cast<uint16_t>(records.size()), records.data());
  }
};

TEST_F(slot_table, opening_allocates_zeroed_entries) {
  const lum_port_props *entries = open(4);
  ASSERT_NE(entries, nullptr);
  const lum_port_props zero[4] = {};
  EXPECT_EQ(std::memcmp(entries, zero, sizeof zero), 0);
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
}

TEST_F(slot_table, opening_without_memory_returns_null_and_the_instance_is_used) {
  script.fail("calloc", 1, 1);
  EXPECT_EQ(open(4), nullptr);
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 0), 0u);
  fill({entry(7, 5)});
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
}

TEST_F(slot_table, opening_again_starts_afresh) {
  open(4);
  fill({entry(7, 5)});
  open(2);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 7), 0u);
}

TEST_F(slot_table, closing_zeroes_the_record) {
  open(4);
  fill({entry(7, 5)});
  lum_slot_properties_deinit(3, 0);
  EXPECT_EQ(lum_plat_is_slot_used(3), 0u);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 0), 0u);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 7), 0u);
}

TEST_F(slot_table, closing_an_unused_instance_does_nothing) {
  open(4, 0);
  fill({entry(7, 5)});
  lum_slot_properties_deinit(3, 0);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 7), 5u);
}

TEST_F(slot_table, number_of_ports_is_that_of_filled_entries_not_the_capacity) {
  open(4);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
  fill({entry(7, 5), entry(8, 6)});
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 2u);
}

TEST_F(slot_table, number_of_ports_of_an_unused_instance_is_0) {
  open(4, 0);
  fill({entry(7, 5)});
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 0), 0u);
}

TEST_F(slot_table, instance_used_looks_at_instance_0_only) {
  open(4, 1, 2);
  EXPECT_EQ(lum_plat_is_instance_used(3), 0u);
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  open(4, 1, 0);
  EXPECT_EQ(lum_plat_is_instance_used(3), 1u);
}

TEST_F(slot_table, used_is_a_truth_value) {
  open(4, 0x80000000);
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  EXPECT_EQ(lum_plat_is_instance_used(3), 1u);
}

// ---- Filling and emptying entries ----

TEST_F(slot_table, filling_takes_three_fields_over_and_marks_the_entry) {
  const lum_port_props *entries = open(4);
  fill({entry(7, 0x10005)});
  EXPECT_EQ(entries[0].rsip, rsip);
  EXPECT_EQ(entries[0].port_index, 7u);
  EXPECT_EQ(entries[0].port_handle, 0x10005u);
  EXPECT_EQ(entries[0].in_use, 1u);
  EXPECT_EQ(entries[0].client_words[0], 0u);
  EXPECT_EQ(entries[0].context, nullptr);
}

TEST_F(slot_table, filling_traces_the_entry_all_records_and_each_one_done) {
  open(4);
  clear_record();
  fill({entry(7, 5), entry(8, 6)});
  EXPECT_THAT(
      traces(),
      ElementsAre(info("entry s: 3 i:0\n").of("lum_defines"),
                  info("port_porterties init for port_idx:7 port_handle:5 rsip: 0x30007\n"),
                  info("port_porterties init for port_idx:8 port_handle:6 rsip: 0x30008\n"),
                  info("port_porterties init done for port rsip: 0x30007\n").of("lum_defines"),
                  info("port_porterties init done for port rsip: 0x30008\n").of("lum_defines")));
}

TEST_F(slot_table, filling_with_no_records_traces_the_entry_only) {
  open(4);
  fill({});
  EXPECT_THAT(traces(), ElementsAre(info("entry s: 3 i:0\n")));
}

TEST_F(slot_table, filling_without_an_array_traces_the_records_and_stops) {
  fill({entry(7, 5)});
  EXPECT_THAT(
      traces(),
      ElementsAre(info("entry s: 3 i:0\n"),
                  info("port_porterties init for port_idx:7 port_handle:5 rsip: 0x30007\n")));
}

TEST_F(slot_table, fifth_port_on_capacity_4_is_dropped_without_an_error) {
  open(4);
  fill({entry(1, 1), entry(2, 2), entry(3, 3), entry(4, 4), entry(5, 5)});
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 4u);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 4), 4u);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 5), 0u);
  EXPECT_THAT(traces(), Not(Contains(an_error())));
  EXPECT_THAT(traces(), Not(Contains(info("port_porterties init done for port rsip: 0x30005\n"))));
}

TEST_F(slot_table, emptying_a_port_index_that_occurs_twice_frees_both) {
  const lum_port_props *entries = open(4);
  fill({entry(7, 1), entry(8, 2), entry(7, 3)});
  lum_plat_set_sdev_ctx(3, 0, 1, 0xAA);
  lum_port_properties_deinit(3, 0, 7);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 1u);
  EXPECT_EQ(entries[0].in_use, 0u);
  EXPECT_EQ(entries[0].context, nullptr);
  EXPECT_EQ(entries[1].in_use, 1u);
  EXPECT_EQ(entries[2].in_use, 0u);
}

TEST_F(slot_table, emptying_compares_the_low_16_bits) {
  open(4);
  fill({entry(0x50007, 1)});
  lum_port_properties_deinit(3, 0, 7);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
}

TEST_F(slot_table, emptied_entry_is_filled_again) {
  const lum_port_props *entries = open(2);
  fill({entry(7, 1), entry(8, 2)});
  lum_port_properties_deinit(3, 0, 7);
  fill({entry(9, 3)});
  EXPECT_EQ(entries[0].port_index, 9u);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 2u);
}

// ---- Look-ups in the slot table ----

TEST_F(slot_table, port_index_of_an_entry_is_its_low_16_bits) {
  open(4);
  fill({entry(0x50007, 1), entry(8, 2)});
  EXPECT_EQ(lum_plat_port_idx(3, 0, 0), 7u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 1), 8u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 2), 0u);
}

TEST_F(slot_table, port_handle_of_a_port_index_is_its_low_16_bits) {
  open(4);
  fill({entry(0x50007, 0x12345), entry(7, 9)});
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 7), 0x2345u) << "the first entry with the index counts";
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 8), 0u);
}

TEST_F(slot_table, context_cell_is_found_by_the_full_handle) {
  open(4);
  fill({entry(7, 0x12345)});
  lum_plat_set_sdev_ctx(3, 0, 0x12345, 0xABCD);
  ASSERT_NE(lum_plat_get_sdev_ctx(3, 0, 0x12345), nullptr);
  EXPECT_EQ(*lum_plat_get_sdev_ctx(3, 0, 0x12345), 0xABCDu);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 0x2345), nullptr);
}

TEST_F(slot_table, context_cell_of_an_unknown_handle_is_not_set) {
  open(4);
  fill({entry(7, 5)});
  lum_plat_set_sdev_ctx(3, 0, 6, 1);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 5), nullptr);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 6), nullptr);
}

TEST_F(slot_table, context_cell_of_an_unused_instance_or_without_capacity_is_not_set) {
  open(4, 0);
  fill({entry(7, 5)});
  lum_plat_set_sdev_ctx(3, 0, 5, 1);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 5), nullptr);
  open(0);
  lum_plat_set_sdev_ctx(3, 0, 0, 1);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 0), nullptr);
}

TEST_F(slot_table, setting_the_context_again_gives_a_new_cell_and_keeps_the_old_alive) {
  open(4);
  fill({entry(7, 5)});
  lum_plat_set_sdev_ctx(3, 0, 5, 1);
  uint32_t *first = lum_plat_get_sdev_ctx(3, 0, 5);
  lum_plat_set_sdev_ctx(3, 0, 5, 2);
  uint32_t *second = lum_plat_get_sdev_ctx(3, 0, 5);
  EXPECT_NE(first, second);
  EXPECT_EQ(*first, 1u);
  EXPECT_EQ(*second, 2u);
  std::free(first);
}

TEST_F(slot_table, context_cell_without_memory_leaves_no_cell) {
  open(4);
  fill({entry(7, 5)});
  script.fail("calloc", 1, 1);
  lum_plat_set_sdev_ctx(3, 0, 5, 1);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 5), nullptr);
}

// ---- Numbers outside the table ----

TEST_F(slot_table, numbers_outside_the_table_answer_as_unused) {
  const lum_slot_props props = {1, 4};
  const lum_port_props record = entry(7, 5);
  for (const auto &[slot, instance] : {std::pair{16u, 0u}, {0u, 4u}, {0xFFFFFFFFu, 0u}}) {
    EXPECT_EQ(lum_slot_properties_init(slot, instance, &props), nullptr);
    lum_port_properties_init(slot, instance, 1, &record);
    lum_port_properties_deinit(slot, instance, 7);
    EXPECT_EQ(lum_plat_num_port_info(slot, instance), 0u);
    EXPECT_EQ(lum_plat_port_idx(slot, instance, 0), 0u);
    EXPECT_EQ(lum_plat_get_port_handle(slot, instance, 7), 0u);
    lum_plat_set_sdev_ctx(slot, instance, 5, 1);
    EXPECT_EQ(lum_plat_get_sdev_ctx(slot, instance, 5), nullptr);
    lum_slot_properties_deinit(slot, instance);
  }
  EXPECT_EQ(lum_plat_is_slot_used(16), 0u);
  EXPECT_EQ(lum_plat_is_instance_used(16), 0u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 0xFFFF), 0u);
}

TEST_F(slot_table, corners_of_the_table_are_inside) {
  const lum_slot_props props = {1, 1};
  EXPECT_NE(lum_slot_properties_init(15, 3, &props), nullptr);
  EXPECT_EQ(lum_plat_is_slot_used(15), 1u);
  EXPECT_NE(lum_slot_properties_init(0, 0, &props), nullptr);
}

// ---- Counter and hooks ----

TEST(controller_counter, adds_and_takes_away) {
  lum_inc_ots_cntrs(2);
  lum_inc_ots_cntrs(3);
  lum_dec_ots_cntrs(1);
  EXPECT_EQ(lum_num_ots_ctrls(), 4u);
}

TEST(controller_counter, taking_2_away_at_1_leaves_0) {
  lum_inc_ots_cntrs(1);
  lum_dec_ots_cntrs(2);
  EXPECT_EQ(lum_num_ots_ctrls(), 0u);
}

TEST(controller_counter, adding_does_not_check_for_overflow) {
  lum_inc_ots_cntrs(0xFFFFFFFF);
  lum_inc_ots_cntrs(2);
  EXPECT_EQ(lum_num_ots_ctrls(), 1u);
}

TEST(platform_hooks, have_fixed_answers) {
  EXPECT_EQ(lum_ctx_derive_hw_nodeid(1, 2, 3), 0u);
  EXPECT_EQ(lum_plat_is_optics_inserted(3, 0, 7), 1u);
  EXPECT_EQ(lum_plat_is_optics_inserted(-1, -1, -1), 1u);
}

}  // namespace
