// The polling thread: its cycles and visits.
#include <gmock/gmock.h>

#include <pthread.h>

#include <ostream>
#include <string>

#include "blocks.h"
#include "dom_thread_fixture.h"

namespace dom_thread_test {

using namespace dom_thread_fixture;
using namespace support;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Ne;
using testing::Not;
using testing::SizeIs;

namespace {

// ---- The thread ----

TEST(dom_thread_start, traces_its_creation_and_names_itself) {
  ASSERT_EQ(boot(), 0u);
  EXPECT_THAT(traces(), Contains(info(11, "DOM thread created \n").of("lum_api")));
  char name[16] = {};
  ASSERT_EQ(pthread_getname_np(lum_get_ctx()->dom_thread, name, sizeof name), 0);
  EXPECT_STREQ(name, "lum_dom_thread");
}

TEST(dom_thread_start, is_traced_before_the_thread_has_its_name) {
  std::string name;
  at_trace = [&](const trace_line &line) {
    if (line.point != 11) return;
    char text[16] = {};
    pthread_getname_np(pthread_self(), text, sizeof text);
    name = text;
  };
  ASSERT_EQ(boot(), 0u);
  at_trace = nullptr;
  EXPECT_THAT(name, AllOf(Not(IsEmpty()), Ne("lum_dom_thread")));
}

TEST(dom_thread_start, sleeps_5_seconds_before_the_first_cycle) {
  ASSERT_EQ(boot(), 0u);
  EXPECT_THAT(calls({"sleep", "stat"}), ElementsAre("sleep(5)"));
}

TEST_F(dom_thread, every_cycle_ends_in_a_sleep_of_5_seconds) {
  clear_record();
  polling.run_cycles(3);
  EXPECT_THAT(calls({"sleep"}), ElementsAre("sleep(5)", "sleep(5)", "sleep(5)"));
}

// ---- Cycles that poll nothing ----

TEST_F(dom_thread, marker_file_stops_transfers_and_traces) {
  add(rsip);
  set_skip_file(true);
  cycle();
  EXPECT_THAT(calls(), ElementsAre("stat(\"/tmp/skip_dom_fetch\")", "sleep(5)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(dom_thread, marker_file_is_looked_for_in_every_cycle) {
  add(rsip);
  set_skip_file(true);
  cycle();
  set_skip_file(false);
  cycle();
  EXPECT_THAT(calls(transfer_calls), SizeIs(2));
  set_skip_file(true);
  cycle();
  EXPECT_THAT(calls(transfer_calls), IsEmpty());
}

TEST_F(dom_thread, without_controllers_nothing_is_polled) {
  add(rsip);
  set_controller_count(0);
  cycle();
  EXPECT_THAT(calls(), ElementsAre("stat(\"/tmp/skip_dom_fetch\")", "sleep(5)"));
  EXPECT_THAT(traces(), IsEmpty());
  set_controller_count(1);
  cycle();
  EXPECT_THAT(calls(transfer_calls), SizeIs(2));
}

TEST_F(dom_thread, empty_database_ends_the_cycle) {
  cycle();
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next", "fw_upgrade_status"}),
              ElementsAre("wavl_get_first(0)"));
}

// ---- Ports that are not polled ----

TEST_F(dom_thread, port_that_is_not_enabled_is_traced_and_not_read) {
  lum::shared_store(add(rsip).is_dom_enabled, 0);
  cycle();
  EXPECT_THAT(calls(transfer_calls), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 0, 0, 0)).of("lum_api")));
}

TEST_F(dom_thread, port_whose_module_is_upgrading_is_traced_with_the_status_and_not_read) {
  add(rsip);
  client.set_upgrade(rsip, 42);
  cycle();
  EXPECT_THAT(calls(transfer_calls), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 1, 42, 0))));
}

TEST_F(dom_thread, port_without_a_module_is_traced_and_not_read) {
  lum::shared_store(add(rsip).transceiver_disabled, 1);
  cycle();
  EXPECT_THAT(calls(transfer_calls), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 1, 0, 1))));
}

TEST_F(dom_thread, reason_is_traced_for_every_such_port_in_every_cycle) {
  lum::shared_store(add(rsip).is_dom_enabled, 0);
  lum::shared_store(add(rsip + 1).transceiver_disabled, 2);
  for (int i = 0; i < 2; ++i) {
    cycle();
    EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 0, 0, 0)),
                                      info(13, not_polled("0x30008", 1, 0, 2))));
  }
}

TEST_F(dom_thread, upgrade_status_is_asked_before_the_flags_are_looked_at) {
  lum_port_data &port = add(rsip);
  lum::shared_store(port.is_dom_enabled, 0);
  lum::shared_store(port.transceiver_disabled, 1);
  client.set_upgrade(rsip, 42);
  cycle();
  EXPECT_THAT(calls({"fw_upgrade_status"}), ElementsAre("fw_upgrade_status(0x30007)"));
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 0, 42, 1))));
}

TEST_F(dom_thread, upgrade_status_that_is_not_written_is_0_and_not_the_port_befores) {
  add(rsip);
  add(rsip + 1);
  client.set_upgrade(rsip, 42);
  script.fail("fw_upgrade_status", 2, 33);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 1, 42, 0))));
  EXPECT_THAT(calls(transfer_calls), ElementsAre("i2c_read_block(3, 0, 8, 0, 0, 128)",
                                                 "i2c_read_block(3, 0, 8, 3, 128, 23)"));
}

TEST_F(dom_thread, upgrade_status_counts_also_when_the_callback_fails) {
  add(rsip);
  lum_get_ctx()->platform_cbs.fw_upgrade_status = [](uint32_t, uint32_t *status) -> cerrno {
    *status = 1;
    return 33;
  };
  cycle();
  EXPECT_THAT(calls(transfer_calls), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 1, 1, 0))));
}

TEST_F(dom_thread, unpolled_port_does_not_have_its_mutex_taken) {
  watch(add(rsip).port_mutex, "port");
  client.set_upgrade(rsip, 1);
  cycle();
  EXPECT_THAT(calls(port_locks), IsEmpty());
}

// ---- The walk ----

TEST_F(dom_thread, ports_are_visited_in_rsip_order_without_the_databases_lock_held) {
  add(0x40002);
  add(0x30009);
  add(0x30007);
  cycle();
  EXPECT_THAT(
      calls({"fw_upgrade_status", "wavl_get_first", "wavl_get_next"}),
      ElementsAre("wavl_get_first(0)", "fw_upgrade_status(0x30007)", "wavl_get_next(0x30007, 0)",
                  "fw_upgrade_status(0x30009)", "wavl_get_next(0x30009, 0)",
                  "fw_upgrade_status(0x40002)", "wavl_get_next(0x40002, 0)"));
}

TEST_F(dom_thread, walk_takes_the_databases_mutex_for_the_transfers_and_the_led_only) {
  add(rsip);
  lum::shared_store(add(rsip + 1).is_dom_enabled, 0);
  watch(lum_platform.mutex, "db");
  cycle();
  const std::string take = "pthread_mutex_trylock(db)";
  const std::string release = "pthread_mutex_unlock(db)";
  EXPECT_THAT(calls({"fw_upgrade_status", "pthread_mutex_trylock", "pthread_mutex_lock",
                     "pthread_mutex_unlock"}),
              ElementsAre("fw_upgrade_status(0x30007)", take, release, take, release, take, release,
                          "fw_upgrade_status(0x30008)"));
}

TEST_F(dom_thread, walk_that_stands_on_a_removed_port_goes_on_with_the_next) {
  add(rsip);
  add(rsip + 1);
  modules.before_transfer = [] { lum_ports_db_remove_entry(rsip); };
  cycle();
  EXPECT_THAT(calls({"i2c_read_block"}), Contains("i2c_read_block(3, 0, 8, 0, 0, 128)"));
}

// ---- One visit ----

TEST_F(dom_thread, visit_makes_two_block_reads_under_the_ports_mutex) {
  watch(add(rsip).port_mutex, "port");
  cycle();
  EXPECT_THAT(calls({"fw_upgrade_status", "i2c_read_byte", "i2c_read_block", "i2c_write_byte",
                     "pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock",
                     "led_set_state"}),
              ElementsAre("fw_upgrade_status(0x30007)", "pthread_mutex_trylock(port)",
                          "i2c_read_block(3, 0, 7, 0, 0, 128)",
                          "i2c_read_block(3, 0, 7, 3, 128, 23)", "led_set_state(0x30007, 0, 0)",
                          "led_set_state(0x30007, 0, 1)", "pthread_mutex_unlock(port)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(dom_thread, old_memory_map_has_the_chunk_on_page_3_at_128) {
  lum::shared_store(add(rsip).new_memmap, 0);
  cycle();
  EXPECT_THAT(calls(transfer_calls), ElementsAre("i2c_read_block(3, 0, 7, 0, 0, 128)",
                                                 "i2c_read_block(3, 0, 7, 3, 128, 23)"));
}

TEST_F(dom_thread, new_memory_map_has_the_chunk_on_page_1_at_192) {
  lum::shared_store(add(rsip).new_memmap, 1);
  cycle();
  EXPECT_THAT(calls(transfer_calls), ElementsAre("i2c_read_block(3, 0, 7, 0, 0, 128)",
                                                 "i2c_read_block(3, 0, 7, 1, 192, 23)"));
}

class new_memory_map : public dom_thread, public testing::WithParamInterface<uint32_t> {};

TEST_P(new_memory_map, has_the_status_bytes_on_page_1) {
  lum_port_data &port = add(rsip);
  lum::shared_store(port.new_memmap, GetParam());
  for (uint32_t i = 0; i < 23; ++i) {
    module().put(1, 192 + i, {static_cast<uint8_t>(0x40 + i)});
    module().put(3, 128 + i, {static_cast<uint8_t>(0xC0 + i)});
  }
  cycle();
  EXPECT_THAT(port.dom[0].status, ElementsAre(0x40 + 22, 0x40 + 19, 0x40 + 5));
  EXPECT_THAT(port.dom[1].status, ElementsAre(0x40 + 22, 0x40 + 18, 0x40 + 0));
}

INSTANTIATE_TEST_SUITE_P(each_mark, new_memory_map, testing::Values(1u, 2u));

TEST_F(dom_thread, visit_takes_no_block) {
  lum::shared_store(add(rsip).led_state, 1);
  const block_watch blocks;
  cycle();
  EXPECT_EQ(blocks.taken(), 0u);
}

TEST_F(dom_thread, every_reading_status_and_flag_comes_from_its_bytes) {
  lum_port_data &port = add(rsip);
  for (uint32_t i = 0; i < 128; ++i) module().put(0, i, {static_cast<uint8_t>(i + 1)});
  for (uint32_t i = 0; i < 23; ++i) module().put(3, 128 + i, {static_cast<uint8_t>(0xC0 + i)});
  cycle();
  const auto be16 = [](uint32_t at) { return static_cast<uint16_t>((at + 1) << 8 | (at + 2)); };
  EXPECT_THAT(port.dom[0].readings, ElementsAre(be16(18), be16(45), be16(68), be16(43), be16(47)));
  EXPECT_THAT(port.dom[0].status, ElementsAre(0xC0 + 22, 0xC0 + 19, 0xC0 + 5));
  EXPECT_THAT(port.dom[1].readings, ElementsAre(be16(41), be16(22), be16(66), be16(20), be16(24)));
  EXPECT_THAT(port.dom[1].status, ElementsAre(0xC0 + 22, 0xC0 + 18, 0xC0 + 0));
  EXPECT_EQ(port.vendor.fw_version, be16(39));
  EXPECT_EQ(port.module_temperature, static_cast<int16_t>(be16(14)));
  EXPECT_EQ(port.module_word_16, be16(16));
  EXPECT_THAT(port.module_flags,
              ElementsAre(9 + 1, 10 + 1, 11 + 1, 12 + 1, 13 + 1, 64 + 1, 70 + 1, 49 + 1));
}

TEST_F(dom_thread, polled_firmware_version_replaces_the_converted_one) {
  lum_port_data &port = add(rsip);
  module().put_text(0, 39, "17");
  ASSERT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  ASSERT_EQ(port.vendor.fw_version, 0x107u);
  cycle();
  EXPECT_EQ(port.vendor.fw_version, 0x3137u);
}

TEST_F(dom_thread, every_byte_may_be_anything) {
  lum_port_data &port = add(rsip);
  for (uint32_t i = 0; i < 128; ++i) module().put(0, i, {0xFF});
  for (uint32_t i = 128; i < 256; ++i) module().put(3, i, {0xFF});
  cycle();
  EXPECT_EQ(port.module_temperature, -1);
  EXPECT_EQ(port.dom[1].readings[4], 0xFFFF);
  EXPECT_EQ(port.led_state, 3u);
}

TEST_F(dom_thread, values_follow_the_module_from_cycle_to_cycle) {
  lum_port_data &port = add(rsip);
  for (const uint16_t temperature : {0x1900, 0x1A80, 0xF000}) {
    module().put_be16(0, 14, temperature);
    cycle();
    EXPECT_EQ(port.module_temperature, static_cast<int16_t>(temperature));
  }
}

// ---- The LED ----

struct led_case {
  uint8_t l10, l11, l12, l13;
  uint32_t state;
};
void PrintTo(const led_case &each, std::ostream *out) {
  *out << int{each.l10} << " " << int{each.l11} << " " << int{each.l12} << " " << int{each.l13};
}

class led_decision : public dom_thread, public testing::WithParamInterface<led_case> {};

TEST_P(led_decision, follows_the_flag_bytes) {
  const led_case &each = GetParam();
  lum_port_data &port = add(rsip);
  module().put(0, 10, {each.l10, each.l11, each.l12, each.l13});
  cycle();
  EXPECT_EQ(port.led_state, each.state);
  EXPECT_EQ(client.led(rsip), each.state);
}

INSTANTIATE_TEST_SUITE_P(each_flag, led_decision,
                         testing::Values(led_case{0x02, 0, 0, 0, 3}, led_case{0x20, 0, 0, 0, 3},
                                         led_case{0, 0, 0x02, 0, 3}, led_case{0, 0, 0x20, 0, 3},
                                         led_case{0x01, 0, 0x01, 0, 1},
                                         led_case{0xDD, 0, 0xDD, 0, 1}, led_case{0, 0, 0, 0x01, 3},
                                         led_case{0, 0, 0, 0x80, 3}, led_case{0, 0xFF, 0, 0, 1},
                                         led_case{0, 0, 0, 0, 1}));

TEST_F(dom_thread, led_that_matches_the_decision_already_causes_no_call) {
  lum::shared_store(add(rsip).led_state, 1);
  cycle();
  EXPECT_THAT(calls({"led_set_state", "led_get_state"}), IsEmpty());
}

TEST_F(dom_thread, led_turns_to_fault_and_back_with_the_flag) {
  lum::shared_store(add(rsip).led_state, 1);
  module().put(0, 13, {1});
  cycle();
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 3)"));
  cycle();
  EXPECT_THAT(calls({"led_set_state"}), IsEmpty());
  module().put(0, 13, {0});
  cycle();
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 1)"));
}

TEST_F(dom_thread, failing_led_is_not_looked_at) {
  lum_port_data &port = add(rsip);
  add(rsip + 1);
  script.fail_always("led_set_state", 5);
  cycle();
  EXPECT_EQ(port.led_state, 1u);
  EXPECT_THAT(traces(), Not(Contains(an_error())));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(4));
}

// ---- Whether a module's firmware is being upgraded ----

TEST_F(dom_thread, upgrade_status_is_the_callbacks) {
  client.set_upgrade(rsip, 7);
  uint32_t status = 0;
  clear_record();
  EXPECT_EQ(lum_optics_get_fw_upgrd_status(rsip, &status), 0u);
  EXPECT_EQ(status, 7u);
  EXPECT_THAT(calls(), ElementsAre("fw_upgrade_status(0x30007)"));
  script.fail("fw_upgrade_status", 1, 33);
  EXPECT_EQ(lum_optics_get_fw_upgrd_status(rsip, &status), 33u);
}

// ---- From creation to polling ----

TEST(polling_road, created_ports_are_polled_once_the_interface_manager_has_confirmed_them) {
  ASSERT_EQ(boot(), 0u);
  modules.at(3, 0, 7).put_be16(0, 14, 0x1900);
  const lum_slot_props slot = {1, 1};
  lum_plat_init(0, 3, 0, &slot);
  lum_port_props props = {};
  props.rsip = rsip;
  props.port_index = 7;
  props.port_handle = 5;
  ASSERT_EQ(lum_create_ports(1, &props), 0u);
  clear_record();
  polling.run_cycle();
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 0, 0, 0))));
  im.answer_all();
  clear_record();
  polling.run_cycle();
  EXPECT_EQ(data_at(rsip).module_temperature, 0x1900);
  EXPECT_EQ(client.led(rsip), 1u);
}

}  // namespace

}  // namespace dom_thread_test
