// Port properties: the slot table.
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "library.h"

namespace slot_table_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

constexpr uint32_t rsip = 0x30007;

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

TEST_F(slot_table, capacity_is_read_as_16_bits) {
  open(0x10002);
  fill({entry(7, 5), entry(8, 6), entry(9, 7)});
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 2u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 2), 0u);
}

TEST_F(slot_table, capacity_whose_low_16_bits_are_0_is_none) {
  open(0x10000);
  fill({entry(7, 5)});
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
  lum_plat_set_sdev_ctx(3, 0, 0, 1);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 0), nullptr);
}

TEST_F(slot_table, instances_and_slots_do_not_share_their_entries) {
  const lum_slot_props props = {1, 2};
  open(2);
  open(2, 1, 1);
  ASSERT_NE(lum_slot_properties_init(2, 0, &props), nullptr);
  fill({entry(7, 5)});
  for (const auto &[slot, instance] : {std::pair{3u, 1u}, {2u, 0u}}) {
    EXPECT_EQ(lum_plat_num_port_info(slot, instance), 0u);
    EXPECT_EQ(lum_plat_port_idx(slot, instance, 0), 0u);
    EXPECT_EQ(lum_plat_get_port_handle(slot, instance, 7), 0u);
  }
  lum_slot_properties_deinit(3, 1);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 7), 5u);
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

TEST_F(slot_table, emptying_takes_entries_that_are_free_already_too) {
  const lum_port_props *entries = open(4);
  fill({entry(7, 5)});
  lum_port_properties_deinit(3, 0, 0);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0xFFFEu) << "three free entries have index 0";
  EXPECT_EQ(entries[0].in_use, 1u);
}

TEST_F(slot_table, emptied_entry_keeps_its_numbers_and_is_emptied_again) {
  const lum_port_props *entries = open(1);
  fill({entry(7, 5)});
  lum_port_properties_deinit(3, 0, 7);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0u);
  lum_port_properties_deinit(3, 0, 7);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 0xFFFFu);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 7), 5u);
  EXPECT_EQ(lum_plat_port_idx(3, 0, 0), 7u);
  EXPECT_EQ(entries[0].rsip, rsip);
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

TEST_F(slot_table, context_cell_is_that_of_the_first_entry_with_the_handle) {
  const lum_port_props *entries = open(2);
  fill({entry(7, 5), entry(8, 5)});
  lum_plat_set_sdev_ctx(3, 0, 5, 1);
  EXPECT_NE(entries[0].context, nullptr);
  EXPECT_EQ(entries[1].context, nullptr);
}

TEST_F(slot_table, context_cell_of_handle_0_is_that_of_a_free_entry) {
  const lum_port_props *entries = open(2);
  fill({entry(7, 5)});
  lum_plat_set_sdev_ctx(3, 0, 0, 9);
  ASSERT_NE(entries[1].context, nullptr);
  EXPECT_EQ(*entries[1].context, 9u);
  EXPECT_EQ(lum_plat_get_sdev_ctx(3, 0, 0), entries[1].context);
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

}  // namespace

}  // namespace slot_table_test
