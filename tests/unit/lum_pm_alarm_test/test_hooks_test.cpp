// The operator's test events: alarms forced on and readings lifted, and every text that is refused.
#include <gmock/gmock.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "one_port.h"
#include "performance.h"

namespace test_hooks_test {

using namespace support;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_pm_alarm_test";

// ---- Registration ----

TEST(test_suites, have_four_names) {
  EXPECT_STREQ(test_string[0], "test_suite_0");
  EXPECT_STREQ(test_string[1], "test_suite_1");
  EXPECT_STREQ(test_string[2], "test_suite_2");
  EXPECT_STREQ(test_string[3], "test_suite_3");
  EXPECT_EQ(sizeof test_string, 160u);
}

TEST(test_suites, first_is_installed_at_start_up_when_asked_for) {
  lum_infra_params params = parameters();
  params.pm_alarm_test = 1;
  EXPECT_EQ(boot(params), 0u);
  EXPECT_THAT(calls({"test_event_init_tests_v2"}),
              ElementsAre("test_event_init_tests_v2(\"test_suite_0\", 0, 0x45, 1)"));
}

TEST(test_suites, none_is_installed_when_not_asked_for) {
  EXPECT_EQ(boot(), 0u);
  EXPECT_THAT(calls({"test_event_init_tests_v2"}), IsEmpty());
}

class test_hook : public one_port {
 protected:
  static void send(const std::string &text) { lum_ots_test_alarms_pm(nullptr, text.c_str()); }
  // To sub-port `s` of the port, all numbers in hexadecimal.
  static void send(uint32_t s, const std::string &numbers) {
    send("lum#Ots0_3_1_7_" + std::to_string(s) + "#" + numbers);
  }
  static uint64_t bits(uint32_t s) { return port().test[s].test_alarm_bits; }
  static std::array<uint16_t, 4> offsets(uint32_t s) {
    const auto &all = port().test[s].pm_test_offsets;
    return {all[0], all[1], all[2], all[3]};
  }
  static void expect_untouched() {
    for (const uint32_t s : {0u, 1u}) {
      EXPECT_EQ(bits(s), 0u);
      EXPECT_THAT(offsets(s), Each(0));
    }
  }
};

TEST_F(test_hook, suites_are_opened_and_closed_by_number) {
  for (const uint32_t suite : {0u, 3u}) {
    EXPECT_EQ(lum_pm_alarm_test_init(99, suite), 0u);
    lum_pm_alarm_test_cleanup(suite);
  }
  EXPECT_THAT(calls(), ElementsAre("test_event_init_tests_v2(\"test_suite_0\", 0, 0x45, 1)",
                                   "test_event_close_tests(\"test_suite_0\")",
                                   "test_event_init_tests_v2(\"test_suite_3\", 0, 0x45, 1)",
                                   "test_event_close_tests(\"test_suite_3\")"));
}

TEST_F(test_hook, init_returns_0_also_when_the_framework_refuses) {
  script.fail("test_event_init_tests_v2", 1, 5);
  EXPECT_EQ(lum_pm_alarm_test_init(0, 0), 0u);
}

TEST_F(test_hook, suite_out_of_range_is_refused) {
  for (const uint32_t suite : {4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(lum_pm_alarm_test_init(0, suite), 22u);
    lum_pm_alarm_test_cleanup(suite);
  }
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(test_hook, test_event_100_of_the_suite_reaches_the_handler) {
  lum_pm_alarm_test_init(0, 1);
  events.send_test("test_suite_1", 99, "t#Ots0_3_1_7_0#1#a#1");
  EXPECT_EQ(bits(0), 0u);
  events.send_test("test_suite_1", 100, "t#Ots0_3_1_7_0#1#a#1");
  EXPECT_EQ(bits(0), 0x2u);
}

// ---- Alarms ----

TEST_F(test_hook, text_1_12_1_for_ots0_1_0_3_1_sets_0x80000_in_sub_port_1_and_in_its_next_bitmap) {
  lum_port_node_info &node = add_port(0x10003);
  lum_update_ifhandle("Ots0_1_0_3_0", 0x2001);
  lum_update_ifhandle("Ots0_1_0_3_1", 0x2002);
  send("test#Ots0_1_0_3_1#1#12#1");
  EXPECT_EQ(node.data.test[1].test_alarm_bits, 0x80000u);
  EXPECT_EQ(node.data.test[0].test_alarm_bits, 0u);
  EXPECT_EQ(lum_update_pm_ptah_data(0x2002), 0u);
  EXPECT_EQ(performance.ptah[0x2002].bitmap, 0x80000u);
}

TEST_F(test_hook, alarm_10_is_written_as_a) {
  send(0, "1#10#1");
  EXPECT_EQ(bits(0), 0u) << "16";
  send(0, "1#a#1");
  EXPECT_EQ(bits(0), 0x2u);
}

struct alarm_rule {
  const char *id;  // hexadecimal
  uint64_t bits_0, bits_1;
};
constexpr alarm_rule alarm_rules[] = {{"a", 0x2, 0x2},
                                      {"c", 0x1, 0x1},
                                      {"11", 0x4, 0x4},
                                      {"12", 0x80000, 0x80000},
                                      {"13", 0x100000, 0x100000},
                                      {"14", 0, 0x20000},
                                      {"15", 0, 0x40000},
                                      {"16", 0x180007, 0x1E0007}};

TEST_F(test_hook, each_alarm_sets_its_bits) {
  for (const alarm_rule &rule : alarm_rules) {
    port().test[0].test_alarm_bits = port().test[1].test_alarm_bits = 0;
    send(0, std::string("1#") + rule.id + "#1");
    EXPECT_EQ(bits(0), rule.bits_0) << rule.id;
    send(1, std::string("1#") + rule.id + "#1");
    EXPECT_EQ(bits(1), rule.bits_1) << rule.id;
  }
}

TEST_F(test_hook, each_alarm_clears_its_bits_only) {
  for (const alarm_rule &rule : alarm_rules) {
    port().test[0].test_alarm_bits = port().test[1].test_alarm_bits = ~uint64_t{0};
    send(0, std::string("1#") + rule.id + "#0");
    EXPECT_EQ(bits(0), ~rule.bits_0) << rule.id;
    send(1, std::string("1#") + rule.id + "#0");
    EXPECT_EQ(bits(1), ~rule.bits_1) << rule.id;
  }
}

TEST_F(test_hook, any_alarm_status_but_1_clears) {
  for (const char *status : {"0", "2", "11", "ffffffff"}) {
    send(0, "1#a#1");
    EXPECT_EQ(bits(0), 0x2u);
    send(0, std::string("1#a#") + status);
    EXPECT_EQ(bits(0), 0u) << status;
  }
}

TEST_F(test_hook, alarms_add_up) {
  send(1, "1#a#1");
  send(1, "1#11#1");
  send(1, "1#c#0");
  EXPECT_EQ(bits(1), 0x6u);
}

TEST_F(test_hook, other_alarm_ids_do_nothing) {
  for (const char *id : {"0", "1", "9", "b", "d", "10", "17", "22", "ffffffff"}) {
    send(0, std::string("1#") + id + "#1");
    send(1, std::string("1#") + id + "#1");
  }
  expect_untouched();
}

// ---- Offsets ----

TEST_F(test_hook, each_offset_test_sets_and_resets_one_offset) {
  const struct {
    const char *id;
    std::array<uint16_t, 4> expected;
  } rules[] = {{"1", {100, 0, 0, 0}},
               {"2", {0, 0, 500, 0}},
               {"3", {0, 0, 0, 500}},
               {"4", {0, 500, 0, 0}},
               {"5", {100, 500, 500, 500}}};
  for (const uint32_t s : {0u, 1u}) {
    for (const auto &rule : rules) {
      send(s, std::string("2#") + rule.id + "#1");
      EXPECT_EQ(offsets(s), rule.expected) << rule.id;
      EXPECT_THAT(offsets(1 - s), Each(0));
      send(s, std::string("2#") + rule.id + "#0");
      EXPECT_THAT(offsets(s), Each(0)) << rule.id;
    }
  }
}

TEST_F(test_hook, test_2_id_5_status_1_then_status_0_restores_all_offsets_to_0) {
  send(1, "2#5#1");
  EXPECT_THAT(offsets(1), ElementsAre(100, 500, 500, 500));
  send(1, "2#5#0");
  EXPECT_THAT(offsets(1), ElementsAre(0, 0, 0, 0));
}

TEST_F(test_hook, any_offset_status_but_0_applies) {
  for (const char *status : {"1", "2", "ff"}) {
    send(0, std::string("2#1#") + status);
    EXPECT_EQ(offsets(0)[0], 100) << status;
    send(0, "2#1#0");
  }
}

TEST_F(test_hook, other_offset_ids_do_nothing) {
  for (const char *id : {"0", "6", "a", "16"}) send(0, std::string("2#") + id + "#1");
  expect_untouched();
}

TEST_F(test_hook, other_tests_do_nothing) {
  for (const char *test : {"0", "3", "10", "12", "ffffffff"}) {
    send(0, std::string(test) + "#a#1");
    send(0, std::string(test) + "#5#1");
  }
  expect_untouched();
}

// ---- Forms that are accepted ----

TEST_F(test_hook, request_and_port_are_traced) {
  send("anything at all#Ots0_3_1_7_1#1#12#1");
  EXPECT_THAT(
      traces(),
      ElementsAre(
          info(72, "intf-name[Ots0_3_1_7_1] test[1] alarm-id[18] status[1] RSIP[0:3:1:7:1] \n")
              .of(area),
          info(74, "Port Found for rsip=0x30107 test id 1 \n").of(area)));
  EXPECT_EQ(traces()[0].signature, "sdssdddddddd");
  EXPECT_EQ(traces()[1].signature, "sdsdd");
}

TEST_F(test_hook, other_tests_are_traced_all_the_same) {
  send(0, "fe#dc#ba");
  EXPECT_THAT(traces(),
              ElementsAre(info("intf-name[Ots0_3_1_7_0] test[254] alarm-id[220] status[186] "
                               "RSIP[0:3:1:7:0] \n"),
                          info("Port Found for rsip=0x30107 test id 254 \n")));
}

class accepted_text : public test_hook, public testing::WithParamInterface<const char *> {};

TEST_P(accepted_text, sets_alarm_18) {
  send(GetParam());
  EXPECT_EQ(bits(0), 0x80000u) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(forms, accepted_text,
                         testing::Values("#Ots0_3_1_7_0#1#12#1", "x#Ots0_3_1_7_0#1#12#1",
                                         "a b_c 1#Ots0_3_1_7_0#1#12#1",
                                         "x#Ots0_3_1_7_0#01#00000012#1",
                                         "x#Ots0_3_1_7_0#0x1#0x12#0X1",
                                         "x#Ots00_03_01_007_0#1#12#1", "x#port Ots0_3_1_7_0#1#12#1",
                                         "x#Ots0_3_1_7_0# 1# 12# 1", "x#Ots0_3_1_7_0#1#12#1\n",
                                         "x#Ots0_3_1_7_0#1#12#1 ", "x#Ots0_3_1_7_0#1#12#1#",
                                         "x#Ots0_3_1_7_0#1#12#1#more", "x#Ots0_3_1_7_0#1#12#1y",
                                         "x#Ots0_3_1_7_0 x#1#12#1", "x#Ots0_3_1_7_0_9#1#12#1"));

TEST_F(test_hook, text_in_front_of_the_first_hash_may_be_of_any_length) {
  send(std::string(100000, 'x') + "#Ots0_3_1_7_0#1#12#1");
  EXPECT_EQ(bits(0), 0x80000u);
}

// ---- Forms that are refused ----

class refused_text : public test_hook, public testing::WithParamInterface<const char *> {};

TEST_P(refused_text, traces_invalid_inputs_and_changes_nothing) {
  send(GetParam());
  EXPECT_THAT(traces(), ElementsAre(error(71, "Invalid inputs \n").of(area)));
  expect_untouched();
}

INSTANTIATE_TEST_SUITE_P(no_hash, refused_text,
                         testing::Values("", "x", "Ots0_3_1_7_0", "Ots0_3_1_7_0 1 12 1"));
INSTANTIATE_TEST_SUITE_P(no_name, refused_text,
                         testing::Values("#", "##", "x#", "x##1#12#1", "x#1#12#1",
                                         "x#Hun0_3_1_7_0#1#12#1", "x#ots0_3_1_7_0#1#12#1",
                                         "Ots0_3_1_7_0#1#12#1", "x#Ot#1#12#1", "####"));
INSTANTIATE_TEST_SUITE_P(not_hexadecimal, refused_text,
                         testing::Values("x#Ots0_3_1_7_0#g#12#1", "x#Ots0_3_1_7_0#1#zz#1",
                                         "x#Ots0_3_1_7_0#1#12#y", "x#Ots0_3_1_7_0#1y#12#1",
                                         "x#Ots0_3_1_7_0#1#1 2#1", "x#Ots0_3_1_7_0#1#0x#1",
                                         "x#Ots0_3_1_7_0#1#100000000#1",
                                         "x#Ots0_3_1_7_0#1#123456789abcdef01#1"));
INSTANTIATE_TEST_SUITE_P(numbers_missing, refused_text,
                         testing::Values("x#Ots0_3_1_7_0", "x#Ots0_3_1_7_0#", "x#Ots0_3_1_7_0#1",
                                         "x#Ots0_3_1_7_0#1#", "x#Ots0_3_1_7_0#1#12",
                                         "x#Ots0_3_1_7_0#1#12#", "x#Ots0_3_1_7_0##12#1",
                                         "x#Ots0_3_1_7_0#1##1", "x#Ots0_3_1_7_0#1#12# "));

TEST_F(test_hook, blanks_and_signs_before_a_names_numbers_do_not_matter) {
  for (const char *name : {"Ots 0_3_1_7_0", "Ots0_+3_1_7_0", "Ots0_3_1_ +7_0", "Ots\t0_3_1_7_ 0"}) {
    send("x#" + std::string(name) + "#1#12#1");
    EXPECT_EQ(bits(0), 0x80000u) << name;
    send("x#" + std::string(name) + "#1#12#0");
    EXPECT_EQ(bits(0), 0u) << name;
  }
}

// ---- Names whose numbers cannot be read in full ----

struct half_read {
  const char *name;
  const char *rsip;  // as the trace shows it
};
void PrintTo(const half_read &each, std::ostream *out) { *out << each.name; }

class half_read_name : public test_hook, public testing::WithParamInterface<half_read> {};

TEST_P(half_read_name, is_traced_with_0_for_what_was_not_read_and_names_no_port) {
  ASSERT_NE(lum_ports_db_find_entry(0x30107), nullptr);
  add_port(0);  // where a name without numbers would lead
  clear_record();
  send("x#" + std::string(GetParam().name) + "#1#12#1");
  EXPECT_THAT(traces(), ElementsAre(info(72, "intf-name[" + std::string(GetParam().name) +
                                                 "] test[1] alarm-id[18] status[1] RSIP[" +
                                                 GetParam().rsip + "] \n")
                                        .of(area)
                                        .signed_as("sdddddddd"),
                                    error(73, "Invalid inputs \n").of(area)));
  expect_untouched();
  EXPECT_EQ(data_at(0).test[0].test_alarm_bits, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    each_form, half_read_name,
    testing::Values(half_read{"Ots", "0:0:0:0:0"}, half_read{"Ots0", "0:0:0:0:0"},
                    half_read{"Ots0_3", "0:3:0:0:0"}, half_read{"Ots0_3_1_7", "0:3:1:7:0"},
                    half_read{"Ots0_3_1_7_", "0:3:1:7:0"}, half_read{"Ots0_3_1_7_z", "0:3:1:7:0"},
                    half_read{"Ots0_3__7_0", "0:3:0:0:0"}, half_read{"Ots_0_3_1_7_0", "0:0:0:0:0"},
                    half_read{"Ots0_3_1_7_99999999999", "0:3:1:7:0"},
                    half_read{"Ots99999999999_3_1_7_0", "0:0:0:0:0"},
                    half_read{"Ots-1_3_1_7_0", "-1:3:1:7:0"},
                    half_read{"Ots0-3-1-7-0", "0:0:0:0:0"}));

TEST_F(test_hook, no_text_is_refused) {
  lum_ots_test_alarms_pm(nullptr, nullptr);
  EXPECT_THAT(traces(), ElementsAre(error(71, "Invalid inputs \n")));
}

TEST_F(test_hook, names_and_numbers_longer_than_any_buffer_are_refused) {
  for (const std::size_t length : {64u, 65u, 100u, 4096u, 100000u}) {
    clear_record();
    send("x#Ots" + std::string(length, '0') + "0_3_1_7_0#1#12#1");
    send("x#Ots0_3_1_7_0" + std::string(length, 'x') + "#1#12#1");
    send("x#Ots0_3_1_7_0#1#" + std::string(length, 'f') + "#1");
    EXPECT_THAT(traces(), ElementsAre(error("Invalid inputs \n"), error("Invalid inputs \n"),
                                      error("Invalid inputs \n")));
  }
  expect_untouched();
}

TEST_F(test_hook, longest_name_that_fits_is_accepted) {
  const std::string zeros(63 - std::string("Ots0_3_1_7_0").size(), '0');
  send("x#Ots" + zeros + "0_3_1_7_0#1#12#1");
  EXPECT_EQ(bits(0), 0x80000u);
  clear_record();
  send("x#Ots0" + zeros + "0_3_1_7_0#1#12#1");
  EXPECT_THAT(traces(), ElementsAre(error(71, "Invalid inputs \n")));
}

TEST_F(test_hook, unknown_port_is_told_and_refused) {
  send("x#Ots0_3_1_9_0#1#12#1");
  EXPECT_THAT(traces(), ElementsAre(info(72,
                                         "intf-name[Ots0_3_1_9_0] test[1] alarm-id[18] status[1] "
                                         "RSIP[0:3:1:9:0] \n"),
                                    error(73, "Invalid inputs \n").of(area)));
  expect_untouched();
}

TEST_F(test_hook, sub_port_out_of_range_finds_the_port_and_changes_nothing) {
  for (const char *sub_port : {"2", "3", "255", "4294967295"}) {
    clear_record();
    send(std::string("x#Ots0_3_1_7_") + sub_port + "#1#16#1");
    send(std::string("x#Ots0_3_1_7_") + sub_port + "#2#5#1");
    EXPECT_THAT(traces(), Contains(info(74, "Port Found for rsip=0x30107 test id 1 \n")));
    EXPECT_THAT(traces(), Contains(info(74, "Port Found for rsip=0x30107 test id 2 \n")));
  }
  expect_untouched();
}

// ---- Beside the feed ----

TEST_F(test_hook, ports_mutex_is_not_taken) {
  watch(port().port_mutex, "port");
  send(0, "1#a#1");
  send(0, "2#5#1");
  EXPECT_EQ(bits(0), 0x2u);
  EXPECT_THAT(offsets(0), ElementsAre(100, 500, 500, 500));
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

TEST_F(test_hook, bits_change_while_bitmaps_are_sent) {
  std::thread operator_thread([] {
    for (int i = 0; i < 500; ++i) {
      send(0, i % 2 == 0 ? "1#16#1" : "1#16#0");
      send(0, i % 2 == 0 ? "2#5#1" : "2#5#0");
    }
  });
  for (int i = 0; i < 500; ++i) EXPECT_EQ(lum_update_pm_ptah_data(handle_0), 0u);
  operator_thread.join();
  EXPECT_EQ(bits(0), 0u);
  lum_update_pm_ptah_data(handle_0);
  EXPECT_EQ(performance.ptah[handle_0].bitmap, 0u);
}

}  // namespace

}  // namespace test_hooks_test
