// The polling thread.
#include <gmock/gmock.h>

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "base/shared.h"
#include "library.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr uint32_t rsip = 0x30007;

const std::initializer_list<std::string_view> transfers = {"i2c_read_byte", "i2c_read_block",
                                                           "i2c_write_byte"};
const std::initializer_list<std::string_view> port_locks = {
    "pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock"};

std::string not_polled(const char *at, int enabled, unsigned upgrading, int disabled) {
  char text[160];
  std::snprintf(text, sizeof text,
                "DOM thread: DOM is disabled for rsip=%s, is_dom_enabled %d, "
                "module_fw_upg_in_prog %u, transceiver_disabled %d\n",
                at, enabled, upgrading, disabled);
  return text;
}

// Controllers exist, and so do the ports that a test adds.
class dom_thread : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    set_controller_count(2);
  }
  static lum_port_data &add(uint32_t at) { return add_polled_port(at).data; }
  static void cycle() {
    clear_record();
    polling.run_cycle();
  }
  static module_memory &module(uint32_t port = 7) { return modules.at(3, 0, port); }
};

// ---- The thread ----

TEST(dom_thread_start, traces_its_creation_and_names_itself) {
  ASSERT_EQ(boot(), 0u);
  EXPECT_THAT(traces(), Contains(info(11, "DOM thread created \n").of("lum_api")));
  char name[16] = {};
  ASSERT_EQ(pthread_getname_np(lum_get_ctx()->dom_thread, name, sizeof name), 0);
  EXPECT_STREQ(name, "lum_dom_thread");
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
  EXPECT_THAT(calls(transfers), SizeIs(2));
  set_skip_file(true);
  cycle();
  EXPECT_THAT(calls(transfers), IsEmpty());
}

TEST_F(dom_thread, without_controllers_nothing_is_polled) {
  add(rsip);
  set_controller_count(0);
  cycle();
  EXPECT_THAT(calls({"fw_upgrade_status", "i2c_read_block", "wavl_get_first"}), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
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
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 0, 0, 0)).of("lum_api")));
}

TEST_F(dom_thread, port_whose_module_is_upgrading_is_traced_with_the_status_and_not_read) {
  add(rsip);
  client.set_upgrade(rsip, 42);
  cycle();
  EXPECT_THAT(calls(transfers), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30007", 1, 42, 0))));
}

TEST_F(dom_thread, port_without_a_module_is_traced_and_not_read) {
  lum::shared_store(add(rsip).transceiver_disabled, 1);
  cycle();
  EXPECT_THAT(calls(transfers), IsEmpty());
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
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_block(3, 0, 7, 0, 0, 128)",
                                            "i2c_read_block(3, 0, 7, 3, 128, 23)"));
}

TEST_F(dom_thread, new_memory_map_has_the_chunk_on_page_1_at_192) {
  lum::shared_store(add(rsip).new_memmap, 1);
  cycle();
  EXPECT_THAT(calls(transfers), ElementsAre("i2c_read_block(3, 0, 7, 0, 0, 128)",
                                            "i2c_read_block(3, 0, 7, 1, 192, 23)"));
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

// ---- Failed transfers ----

TEST_F(dom_thread, failed_first_read_ends_the_visit_and_keeps_the_values) {
  lum_port_data &port = add(rsip);
  watch(port.port_mutex, "port");
  module().put_be16(0, 14, 0x1900);
  cycle();
  module().put_be16(0, 14, 0x2000);
  module().fail_transfers(5);
  cycle();
  EXPECT_THAT(
      traces(),
      ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                  error(16, "module access failed with rc 5 for rsip=0x30007\n").of("lum_api")));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(5)) << "the second read is not tried";
  EXPECT_THAT(calls(port_locks),
              ElementsAre("pthread_mutex_trylock(port)", "pthread_mutex_unlock(port)"));
  EXPECT_EQ(port.module_temperature, 0x1900);
}

TEST_F(dom_thread, failed_second_read_ends_the_visit_and_keeps_the_values) {
  lum_port_data &port = add(rsip);
  watch(port.port_mutex, "port");
  module().put_be16(0, 14, 0x1900);
  for (unsigned nth = 2; nth <= 6; ++nth) script.fail("i2c_read_block", nth, 9);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 3 offset 80 for 0/7 rc 9\n"),
                                    error(17, "module access failed with rc 9 \n").of("lum_api")));
  EXPECT_THAT(calls(port_locks),
              ElementsAre("pthread_mutex_trylock(port)", "pthread_mutex_unlock(port)"));
  EXPECT_EQ(port.module_temperature, 0);
  EXPECT_THAT(calls({"led_set_state"}), IsEmpty());
}

TEST_F(dom_thread, failing_module_costs_five_calls_and_four_pauses) {
  add(rsip);
  module().fail_transfers(5);
  cycle();
  EXPECT_THAT(calls({"usleep"}),
              ElementsAre("usleep(30000)", "usleep(30000)", "usleep(30000)", "usleep(30000)"));
}

TEST_F(dom_thread, module_pulled_between_the_two_reads_is_a_failed_read) {
  add(rsip);
  modules.before_transfer = [first = true]() mutable {
    if (!first) modules.remove(3, 0, 7);
    first = false;
  };
  cycle();
  EXPECT_THAT(traces(), Contains(error(17, "module access failed with rc 6 \n")));
}

TEST_F(dom_thread, port_behind_a_failing_one_traces_the_lock_failure_and_is_still_read) {
  add(rsip);
  lum_port_data &second = add(rsip + 1);
  watch(second.port_mutex, "second");
  module(7).fail_transfers(5);
  module(8).put_be16(0, 14, 0x1900);
  cycle();
  EXPECT_THAT(
      story({"i2c_read_block", "pthread_mutex_trylock", "pthread_mutex_unlock"}),
      texts_in_order({"LUM_ERR: module access failed with rc 5 for rsip=0x30007\n",
                      "pthread_mutex_trylock(second)", "pthread_mutex_unlock(second)",
                      "LUM_ERR: module access lock failed with rc 5 \n",
                      "i2c_read_block(3, 0, 8, 0, 0, 128)", "i2c_read_block(3, 0, 8, 3, 128, 23)",
                      "pthread_mutex_unlock(second)"}));
  EXPECT_THAT(traces(),
              Contains(error(14, "module access lock failed with rc 5 \n").of("lum_api")));
  EXPECT_EQ(second.module_temperature, 0x1900);
}

TEST_F(dom_thread, successful_poll_stops_the_message) {
  for (uint32_t at = rsip; at < rsip + 3; ++at) add(at);
  module(7).fail_transfers(5);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                                    error(16, "module access failed with rc 5 for rsip=0x30007\n"),
                                    error(14, "module access lock failed with rc 5 \n")));
  module(7).fail_transfers(0);
  cycle();
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(dom_thread, degraded_form_lasts_until_a_poll_succeeds) {
  for (uint32_t at = rsip; at < rsip + 4; ++at) add(at);
  module(7).fail_transfers(5);
  module(8).fail_transfers(9);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(116, "Read failed for page 0 offset 0 for 0/7 rc 5\n"),
                                    error(16, "module access failed with rc 5 for rsip=0x30007\n"),
                                    error(14, "module access lock failed with rc 5 \n"),
                                    error(116, "Read failed for page 0 offset 0 for 0/8 rc 9\n"),
                                    error(16, "module access failed with rc 9 for rsip=0x30008\n"),
                                    error(14, "module access lock failed with rc 9 \n")));
}

TEST_F(dom_thread, failure_is_remembered_across_cycles_and_unpolled_ports) {
  add(rsip);
  lum::shared_store(add(rsip + 1).is_dom_enabled, 0);
  module(7).fail_transfers(5);
  cycle();
  module(7).fail_transfers(0);
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 5 \n"),
                                    info(13, not_polled("0x30008", 0, 0, 0))));
  cycle();
  EXPECT_THAT(traces(), ElementsAre(info(13, not_polled("0x30008", 0, 0, 0))));
}

TEST_F(dom_thread, failed_second_read_is_remembered_too) {
  add(rsip);
  for (unsigned nth = 2; nth <= 6; ++nth) script.fail("i2c_read_block", nth, 9);
  cycle();
  cycle();
  EXPECT_THAT(traces(), ElementsAre(error(14, "module access lock failed with rc 9 \n")));
}

TEST_F(dom_thread, mutex_is_free_after_a_degraded_visit) {
  add(rsip);
  lum_port_data &second = add(rsip + 1);
  module(7).fail_transfers(5);
  cycle();
  EXPECT_EQ(pthread_mutex_trylock(&second.port_mutex), 0);
  EXPECT_EQ(pthread_mutex_unlock(&second.port_mutex), 0);
}

TEST_F(dom_thread, port_of_another_rack_fails_with_22_for_it_cannot_be_reached) {
  add(0x01030007);
  cycle();
  EXPECT_THAT(traces(),
              ElementsAre(error(114, "Port not found in DB for rsip=0x30007\n"),
                          error(16, "module access failed with rc 22 for rsip=0x1030007\n")));
}

// ---- Beside others ----

// Waits for the polling thread to stand at a mutex.
void wait_for_a_mark() {
  while (calls({"ptd_set_mutex_block"}).empty()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST_F(dom_thread, wait_for_a_ports_mutex_is_marked) {
  lum_port_data &port = add(rsip);
  ASSERT_EQ(pthread_mutex_lock(&port.port_mutex), 0);
  clear_record();
  polling.start_cycle();
  wait_for_a_mark();
  EXPECT_THAT(calls({"i2c_read_block"}), IsEmpty());
  ASSERT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
  polling.wait_asleep();
  EXPECT_THAT(
      calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}),
      ElementsAre("ptd_set_mutex_block(\"lum_dom_thread\", 302)", "ptd_unset_mutex_block()"));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(2));
}

class switched_off_while_waiting : public dom_thread, public testing::WithParamInterface<bool> {};

TEST_P(switched_off_while_waiting, is_traced_and_not_read) {
  lum_port_data &port = add(rsip);
  ASSERT_EQ(pthread_mutex_lock(&port.port_mutex), 0);
  watch(port.port_mutex, "port");
  clear_record();
  polling.start_cycle();
  wait_for_a_mark();
  if (GetParam()) {
    lum::shared_store(port.is_dom_enabled, 0);
  } else {
    lum::shared_store(port.transceiver_disabled, 1);
  }
  ASSERT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
  polling.wait_asleep();
  EXPECT_THAT(calls({"i2c_read_block"}), IsEmpty());
  EXPECT_THAT(
      traces(),
      ElementsAre(info(15, "DOM thread: DOM is disabled-2for rsip=0x30007\n").of("lum_api")));
  EXPECT_EQ(pthread_mutex_trylock(&port.port_mutex), 0) << "the mutex must have been released";
  EXPECT_EQ(pthread_mutex_unlock(&port.port_mutex), 0);
}

INSTANTIATE_TEST_SUITE_P(each_way, switched_off_while_waiting, testing::Bool());

TEST_F(dom_thread, port_whose_mutex_a_deletion_keeps_is_passed_by) {
  create_ports(3, 0, {7, 8});
  modules.at(3, 0, 7);
  modules.at(3, 0, 8);
  const uint32_t port = 7;
  ASSERT_EQ(lum_delete_ports(0, 3, 0, 1, &port), 0u);
  cycle();
  EXPECT_THAT(traces(), Contains(info(13, not_polled("0x30007", 0, 0, 1))));
  EXPECT_THAT(calls({"i2c_read_block"}), Contains("i2c_read_block(3, 0, 8, 0, 0, 128)"));
}

TEST_F(dom_thread, deletion_waits_for_the_visit_in_progress) {
  create_ports(3, 0, {7});
  modules.at(3, 0, 7);
  std::thread deletion;
  modules.before_transfer = [&] {
    if (deletion.joinable()) return;
    deletion = std::thread([] {
      const uint32_t port = 7;
      lum_delete_ports(0, 3, 0, 1, &port);
    });
    wait_for_a_mark();
  };
  cycle();
  deletion.join();
  EXPECT_THAT(calls({"ptd_set_mutex_block"}),
              ElementsAre("ptd_set_mutex_block(\"lum_delete_ports\", 625)"));
  EXPECT_EQ(im.batches.back().operation, LUM_IM_DELETE);
  cycle();
  EXPECT_THAT(traces(), Contains(info(13, not_polled("0x30007", 0, 0, 1))));
}

TEST_F(dom_thread, ports_may_come_and_go_while_it_polls) {
  for (uint32_t at = rsip; at < rsip + 4; ++at) modules.at(3, 0, at & 0xFF);
  add(rsip);
  for (int round = 0; round < 50; ++round) {
    polling.start_cycle();
    add(rsip + 1 + static_cast<uint32_t>(round) % 3);
    lum_ports_db_remove_entry(rsip + 1 + static_cast<uint32_t>(round) % 3);
    polling.wait_asleep();
  }
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
