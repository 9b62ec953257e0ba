// PM and PTAH ports, and the readings and alarms they are fed with.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "lum_controller_interface/lum_controller_interface.h"
#include "one_port.h"
#include "performance.h"

namespace pm_alarm_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_pm_alarm_test";
constexpr uint32_t create = 1, remove_op = 0;

const std::initializer_list<std::string_view> port_calls = {
    "pm_ui_db_search_node", "pm_ui_port_create", "pm_ui_port_delete", "ptah_al_port_create",
    "ptah_al_port_delete"};

// ---- The ports ----

class pm_ptah_ports : public running_library {
 protected:
  static cerrno op(uint32_t operation, uint32_t ifhandle = 0xABC) {
    return lum_pm_ptah_port_op(operation, {0xFF, 0, 1, 0, 3, 1, ifhandle});
  }
};

TEST_F(pm_ptah_ports, create_makes_the_pm_port_then_the_ptah_port) {
  EXPECT_EQ(op(create), 0u);
  EXPECT_THAT(calls(), ElementsAre("pm_ui_db_search_node(0xabc)",
                                   "pm_ui_port_create(188, 0xabc, \"Ots0_1_0_3_1\")",
                                   "ptah_al_port_create(188, 0xabc, \"Ots0_1_0_3_1\", 0, 1)"));
  EXPECT_THAT(traces(),
              ElementsAre(info(68, "Create PM, PTAH ports for abc with rc 0\n").of(area)));
  EXPECT_EQ(traces()[0].signature, "sdsdd");
}

TEST_F(pm_ptah_ports, both_operations_are_traced_behind_their_service_calls) {
  op(create);
  op(remove_op);
  EXPECT_THAT(story({"pm_ui_port_create", "ptah_al_port_create", "pm_ui_port_delete",
                     "ptah_al_port_delete"}),
              ElementsAre("pm_ui_port_create(188, 0xabc, \"Ots0_1_0_3_1\")",
                          "ptah_al_port_create(188, 0xabc, \"Ots0_1_0_3_1\", 0, 1)",
                          "LUM_INFO: Create PM, PTAH ports for abc with rc 0\n",
                          "ptah_al_port_delete(0xabc)", "pm_ui_port_delete(0xabc)",
                          "LUM_INFO: Delete PM, PTAH ports for abc with rc 0\n"));
}

TEST_F(pm_ptah_ports, creating_twice_makes_one_pair) {
  op(create);
  clear_record();
  EXPECT_EQ(op(create), 0u);
  EXPECT_THAT(calls(port_calls), ElementsAre("pm_ui_db_search_node(0xabc)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(pm_ptah_ports, created_name_holds_five_numbers_of_a_byte_each) {
  lum_pm_ptah_port_op(create, {0, 255, 254, 253, 252, 251, 5});
  EXPECT_THAT(calls(), Contains("pm_ui_port_create(188, 0x5, \"Ots255_254_253_252_251\")"));
}

TEST_F(pm_ptah_ports, leading_byte_is_not_used) {
  lum_pm_ptah_port_op(create, {0, 0, 1, 0, 3, 1, 5});
  EXPECT_THAT(calls(), Contains("pm_ui_port_create(188, 0x5, \"Ots0_1_0_3_1\")"));
}

TEST_F(pm_ptah_ports, create_returns_and_traces_the_or_of_both_results) {
  script.fail("pm_ui_port_create", 1, 0x11);
  script.fail("ptah_al_port_create", 1, 0x22);
  EXPECT_EQ(op(create), 0x33u);
  EXPECT_THAT(traces(), ElementsAre(info(68, "Create PM, PTAH ports for abc with rc 51\n")));
}

TEST_F(pm_ptah_ports, either_failing_create_makes_the_result_non_zero) {
  script.fail("pm_ui_port_create", 1, 5);
  EXPECT_EQ(op(create, 1), 5u);
  EXPECT_THAT(calls(), Contains("ptah_al_port_create(188, 0x1, \"Ots0_1_0_3_1\", 0, 1)"));
  script.fail("ptah_al_port_create", 1, 6);
  EXPECT_EQ(op(create, 2), 6u);
}

TEST_F(pm_ptah_ports, delete_removes_the_ptah_port_then_the_pm_port) {
  op(create);
  clear_record();
  EXPECT_EQ(op(remove_op), 0u);
  EXPECT_THAT(calls(), ElementsAre("pm_ui_db_search_node(0xabc)", "ptah_al_port_delete(0xabc)",
                                   "pm_ui_port_delete(0xabc)"));
  EXPECT_THAT(traces(),
              ElementsAre(info(69, "Delete PM, PTAH ports for abc with rc 0\n").of(area)));
  EXPECT_EQ(traces()[0].signature, "sdsdd");
}

TEST_F(pm_ptah_ports, deleting_twice_deletes_once) {
  op(create);
  op(remove_op);
  clear_record();
  EXPECT_EQ(op(remove_op), 0u);
  EXPECT_THAT(calls(port_calls), ElementsAre("pm_ui_db_search_node(0xabc)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(pm_ptah_ports, delete_returns_and_traces_the_or_of_both_results) {
  op(create);
  clear_record();
  script.fail("ptah_al_port_delete", 1, 0x12);
  script.fail("pm_ui_port_delete", 1, 0x21);
  EXPECT_EQ(op(remove_op), 0x33u);
  EXPECT_THAT(traces(), ElementsAre(info(69, "Delete PM, PTAH ports for abc with rc 51\n")));
  EXPECT_EQ(op(remove_op), 0u) << "the PM port was still there";
}

TEST_F(pm_ptah_ports, any_other_operation_does_nothing) {
  for (const uint32_t operation : {2u, 3u, 0x100u, 0xFFFFFFFFu}) EXPECT_EQ(op(operation), 0u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(pm_ptah_ports, delete_pm_ports_does_nothing) {
  op(create);
  clear_record();
  lum_delete_pm_ports();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(pm_ptah_ports, come_and_go_with_the_controllers) {
  create_ports(4, 0, {1});
  const uint32_t first = im.handle_of("Ots0_4_0_1_0"), second = im.handle_of("Ots0_4_0_1_1");
  EXPECT_EQ(performance.pm.count(first) + performance.pm.count(second), 2u);
  EXPECT_EQ(performance.ptah.count(first) + performance.ptah.count(second), 2u);
  const uint32_t number = 1;
  lum_delete_ports(0, 4, 0, 1, &number);
  im.answer_all();
  EXPECT_TRUE(performance.pm.empty());
  EXPECT_TRUE(performance.ptah.empty());
}

// ---- The data ----

// Whom the feed asks and tells.
const std::initializer_list<std::string_view> service_calls = {
    "fw_upgrade_status", "pm_ui_db_search_node", "pm_ui_set_optics_prim", "ptah_al_store_bmap",
    "ptah_al_send_bmap_counter"};

class pm_ptah_data : public one_port {
 protected:
  void SetUp() override {
    one_port::SetUp();
    for (const uint32_t handle : {handle_0, handle_1}) {
      performance.pm[handle] = {};
      performance.ptah[handle] = {};
    }
    port().dom[0].readings[0] = 0;
    port().dom[0].readings[1] = 1000;
    port().dom[0].readings[3] = 1239;
    port().dom[0].readings[4] = 4321;
    port().dom[1].readings[0] = 0xFC19;  // -1000
    port().dom[1].readings[1] = 2000;
    port().dom[1].readings[3] = 65535;
    port().dom[1].readings[4] = 7;
    clear_record();
  }
  static uint64_t bitmap_of(uint32_t ifhandle) {
    EXPECT_EQ(lum_update_pm_ptah_data(ifhandle), 0u);
    return performance.ptah[ifhandle].bitmap;
  }
  // The stored bitmap when one flag byte alone is `value`.
  static uint64_t bitmap_with(uint32_t ifhandle, std::size_t flag, uint8_t value) {
    for (uint8_t &each : port().module_flags) each = 0;
    port().module_flags[flag] = value;
    return bitmap_of(ifhandle);
  }
};

TEST_F(pm_ptah_data, readings_then_bitmap_then_publication) {
  EXPECT_EQ(lum_update_pm_ptah_data(handle_0), 0u);
  EXPECT_THAT(calls(service_calls),
              ElementsAre("fw_upgrade_status(0x30107)", "pm_ui_db_search_node(0x801)",
                          "pm_ui_set_optics_prim(0x801, 123, 4321, 4321, 4321, 100000, 10000, 1, "
                          "0)",
                          "ptah_al_store_bmap(0x801, 0x0, 1)", "ptah_al_send_bmap_counter(0x801)"));
}

TEST_F(pm_ptah_data, six_values_of_sub_port_1) {
  EXPECT_EQ(lum_update_pm_ptah_data(handle_1), 0u);
  EXPECT_THAT(calls({"pm_ui_set_optics_prim"}),
              ElementsAre("pm_ui_set_optics_prim(0x802, 6553, 7, 7, 7, 1000000, 1000, 1, 0)"));
}

TEST_F(pm_ptah_data, six_values_with_test_offsets) {
  const uint16_t offsets[] = {100, 500, 1000, 3000};
  for (std::size_t i = 0; i < 4; ++i) port().test[0].pm_test_offsets[i] = offsets[i];
  lum_update_pm_ptah_data(handle_0);
  lum_update_pm_ptah_data(handle_1);
  EXPECT_THAT(
      calls({"pm_ui_set_optics_prim"}),
      ElementsAre("pm_ui_set_optics_prim(0x801, 133, 4821, 4821, 4821, 1000000, 10000000, 1, 0)",
                  "pm_ui_set_optics_prim(0x802, 6553, 7, 7, 7, 1000000, 1000, 1, 0)"));
}

TEST_F(pm_ptah_data, offset_sums_of_readings_3_and_4_do_not_wrap) {
  port().dom[0].readings[3] = port().dom[0].readings[4] = 65535;
  port().test[0].pm_test_offsets[0] = 100;
  port().test[0].pm_test_offsets[1] = 500;
  lum_update_pm_ptah_data(handle_0);
  EXPECT_EQ(performance.pm[handle_0].reading_3, 6563u);
  EXPECT_EQ(performance.pm[handle_0].reading_4[0], 66035u);
}

TEST_F(pm_ptah_data, bit_12_is_tested_behind_the_offset) {
  port().dom[0].readings[1] = 4000;
  port().test[0].pm_test_offsets[2] = 500;  // 4500 is 0x1194
  lum_update_pm_ptah_data(handle_0);
  EXPECT_EQ(performance.pm[handle_0].power_1, 0u);
}

// A reading and its offset are a reading again: -1000 and 500 are -500.
TEST_F(pm_ptah_data, offset_sum_beyond_16_bits_is_a_reading_of_16_bits) {
  port().test[0].pm_test_offsets[2] = 500;
  const struct { uint16_t reading, sum; } rows[] = {{0xFFFF, 499}, {0xFC19, 0xFE0D}};
  for (const auto &row : rows) {
    port().dom[0].readings[1] = row.reading;
    lum_update_pm_ptah_data(handle_0);
    EXPECT_EQ(performance.pm[handle_0].power_1, lum::power_of(row.sum)) << row.reading;
  }
}

TEST_F(pm_ptah_data, interface_that_pm_does_not_know_gets_its_bitmap_only) {
  performance.pm.clear();
  EXPECT_EQ(lum_update_pm_ptah_data(handle_0), 0u);
  EXPECT_THAT(calls({"pm_ui_set_optics_prim", "ptah_al_store_bmap", "ptah_al_send_bmap_counter"}),
              ElementsAre("ptah_al_store_bmap(0x801, 0x0, 1)", "ptah_al_send_bmap_counter(0x801)"));
}

TEST_F(pm_ptah_data, services_results_are_not_looked_at) {
  script.fail_always("pm_ui_set_optics_prim", 5);
  script.fail_always("ptah_al_store_bmap", 6);
  script.fail_always("ptah_al_send_bmap_counter", 7);
  EXPECT_EQ(lum_update_pm_ptah_data(handle_0), 0u);
  EXPECT_THAT(calls({"ptah_al_store_bmap", "ptah_al_send_bmap_counter"}), testing::SizeIs(2));
}

TEST_F(pm_ptah_data, any_handle_but_that_of_sub_port_0_means_sub_port_1) {
  port().module_flags[7] = 1;
  EXPECT_EQ(bitmap_of(foreign_handle), 0x60000u);
}

// ---- Bitmaps ----

struct flag_rule {
  std::size_t flag;  // 1, 3, 4, 5, 7: lower-page bytes 10, 12, 13, 64, 49
  uint8_t mask;
  uint64_t alarms;
};

uint64_t alarms_by(std::initializer_list<flag_rule> rules, std::size_t flag, uint8_t value) {
  uint64_t alarms = 0;
  for (const flag_rule &rule : rules) {
    if (rule.flag == flag && (rule.mask & value) != 0) alarms |= rule.alarms;
  }
  return alarms;
}

TEST_F(pm_ptah_data, bitmap_of_sub_port_0_for_every_bit_of_every_flag_byte) {
  for (std::size_t flag = 0; flag < 8; ++flag) {
    for (uint32_t bit = 0; bit < 8; ++bit) {
      const auto value = static_cast<uint8_t>(1u << bit);
      const uint64_t expected = alarms_by(
          {{4, 0x03, 0x4}, {5, 0x20, 0x80000}, {5, 0x10, 0x100000}, {3, 0x20, 0x1}, {1, 0x02, 0x2}},
          flag, value);
      EXPECT_EQ(bitmap_with(handle_0, flag, value), expected) << flag << ' ' << bit;
    }
  }
}

TEST_F(pm_ptah_data, bitmap_of_sub_port_1_for_every_bit_of_every_flag_byte) {
  for (std::size_t flag = 0; flag < 8; ++flag) {
    for (uint32_t bit = 0; bit < 8; ++bit) {
      const auto value = static_cast<uint8_t>(1u << bit);
      const uint64_t expected = alarms_by({{4, 0x30, 0x4},
                                           {5, 0x02, 0x80000},
                                           {5, 0x01, 0x100000},
                                           {3, 0x02, 0x1},
                                           {1, 0x20, 0x2},
                                           {7, 0xFF, 0x60000}},
                                          flag, value);
      EXPECT_EQ(bitmap_with(handle_1, flag, value), expected) << flag << ' ' << bit;
    }
  }
}

TEST_F(pm_ptah_data, all_flags_raise_every_alarm) {
  for (uint8_t &each : port().module_flags) each = 0xFF;
  EXPECT_EQ(bitmap_of(handle_0), 0x180007u);
  EXPECT_EQ(bitmap_of(handle_1), 0x1E0007u);
}

TEST_F(pm_ptah_data, test_bits_of_the_sub_port_are_added) {
  port().test[0].test_alarm_bits = 0x8000000000000000;
  port().test[1].test_alarm_bits = 0x20000;
  port().module_flags[4] = 0x01;
  EXPECT_EQ(bitmap_of(handle_0), 0x8000000000000004u);
  EXPECT_EQ(bitmap_of(handle_1), 0x20000u);
}

// ---- Refusals ----

TEST_F(pm_ptah_data, handle_0_is_22_and_asks_nobody) {
  EXPECT_EQ(lum_update_pm_ptah_data(0), 22u);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(pm_ptah_data, unknown_handle_is_22_and_asks_no_service) {
  EXPECT_EQ(lum_update_pm_ptah_data(0x9999), 22u);
  EXPECT_THAT(calls(service_calls), IsEmpty());
}

TEST_F(pm_ptah_data, name_whose_port_is_not_in_the_database_is_22) {
  client.set_name(0x9999, "Ots0_3_1_9_0");
  EXPECT_EQ(lum_update_pm_ptah_data(0x9999), 22u);
  EXPECT_THAT(calls(service_calls), ElementsAre("fw_upgrade_status(0x30109)"));
}

TEST_F(pm_ptah_data, firmware_upgrade_in_progress_is_22) {
  client.set_upgrade(rsip, 2);
  EXPECT_EQ(lum_update_pm_ptah_data(handle_0), 22u);
  EXPECT_THAT(calls(service_calls), ElementsAre("fw_upgrade_status(0x30107)"));
  client.set_upgrade(rsip, 0);
  EXPECT_EQ(lum_update_pm_ptah_data(handle_0), 0u);
}

TEST_F(pm_ptah_data, failing_question_for_the_upgrade_is_no_upgrade) {
  port().module_flags[4] = 0x01;
  script.fail("fw_upgrade_status", 1, 33);
  EXPECT_EQ(bitmap_of(handle_0), 0x4u);
}

TEST_F(pm_ptah_data, ports_mutex_is_not_taken) {
  watch(port().port_mutex, "port");
  lum_update_pm_ptah_data(handle_0);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

// ---- Statistics ----

TEST_F(pm_ptah_data, statistics_of_each_handle_are_cleared) {
  const uint32_t handles[] = {handle_1, 0, 0x9999};
  EXPECT_EQ(lum_lib_clear_stats(3, handles), 0u);
  EXPECT_THAT(calls(),
              ElementsAre("ptah_al_port_clear_stats(0x802)", "ptah_al_port_clear_stats(0x0)",
                          "ptah_al_port_clear_stats(0x9999)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(pm_ptah_data, last_clear_is_the_result) {
  const uint32_t handles[] = {handle_0, handle_1};
  script.fail("ptah_al_port_clear_stats", 1, 51);
  EXPECT_EQ(lum_lib_clear_stats(2, handles), 0u);
  script.fail("ptah_al_port_clear_stats", 2, 52);
  EXPECT_EQ(lum_lib_clear_stats(2, handles), 52u);
}

TEST_F(pm_ptah_data, clear_without_handles_is_traced) {
  const uint32_t handle = handle_0;
  EXPECT_EQ(lum_lib_clear_stats(0, &handle), 22u);
  EXPECT_EQ(lum_lib_clear_stats(-1, &handle), 22u);
  EXPECT_EQ(lum_lib_clear_stats(1, nullptr), 22u);
  EXPECT_THAT(traces(), ElementsAre(error(70, "Invalid I/P Params\n").of(area),
                                    error("Invalid I/P Params\n"), error("Invalid I/P Params\n")));
  EXPECT_THAT(calls(), IsEmpty());
}

}  // namespace

}  // namespace pm_alarm_test
