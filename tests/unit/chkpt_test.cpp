// Checkpoint records: one per port, created, saved, recovered, deleted.
#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "one_port.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr const char *area = "lum_chkpt";
constexpr uint64_t table = 0xC0DE;
constexpr uint32_t second_rsip = 0x30108;

const std::initializer_list<std::string_view> service_calls = {
    "chkpt_mapkey", "chkpt_create",        "chkpt_get",          "chkpt_save",
    "chkpt_delete", "chkpt_iterate_start", "chkpt_iterate_next", "chkpt_iterate_end"};

// A record of an earlier process: every configuration word is different.
lum_chkpt_record earlier_record(uint32_t key, uint32_t seed = 0x100) {
  lum_chkpt_record record = {};
  record.created = 1;
  record.key = key;
  record.chkpt_id = 0x501;
  for (std::size_t at = 16; at < 96; at += 4) {
    put_word<uint32_t>(record, at, seed + static_cast<uint32_t>(at));
  }
  return record;
}

// An entry in the service's table whose data has another size.
void survive_with_size(uint32_t key, uint32_t size) {
  const std::vector<uint8_t> data(size, 0x77);
  uint64_t id = 0;
  ASSERT_EQ(chkpt_create(table, key, &id), 0u);
  ASSERT_EQ(chkpt_save(table, id, data.data(), size), 0u);
  clear_record();
}

class chkpt : public one_port {
 protected:
  static lum_chkpt_record &mirror() { return port().chkpt; }
  static bool mirror_is_clear() {
    const lum_chkpt_record clear = {};
    return std::memcmp(&mirror(), &clear, sizeof clear) == 0;
  }
  static std::vector<trace_line> lines() { return traces_of(area); }
  static void expect_configuration_of(const lum_chkpt_record &record) {
    EXPECT_EQ(std::memcmp(port().port_cfg, reinterpret_cast<const uint8_t *>(&record) + 16, 80), 0);
  }
};

// ---- Registration ----

class chkpt_init_test : public testing::Test {
 protected:
  void SetUp() override { open_traces(); }
  lum_ctx context = {};
  uint32_t restart = 0x55;
};

TEST_F(chkpt_init_test, prepares_and_registers) {
  EXPECT_EQ(lum_chkpt_init(&context, &restart), 0u);
  EXPECT_THAT(calls(), ElementsAre("chkpt_appdesc_init()", "strncpy_s(24, 23)", "chkpt_init(0)",
                                   "chkpt_tbldesc_init()", "chkpt_register(40)"));
  EXPECT_EQ(context.chkpt_table, table);
  EXPECT_EQ(restart, 0u);
}

TEST_F(chkpt_init_test, bytes_of_the_application_descriptor) {
  lum_chkpt_init(&context, &restart);
  std::array<uint8_t, 128> expected;
  expected.fill(0xA5);  // the service's defaults
  const uint8_t options[] = {0, 0, 0, 0}, version[] = {0x03, 0x20, 0, 0};
  std::memcpy(&expected[16], options, 4);
  std::memcpy(&expected[96], version, 4);
  std::memcpy(&expected[104], "LUM_LIB", 8);
  const chkpt_appdesc given = checkpoints.application();
  EXPECT_EQ(std::memcmp(&given, expected.data(), 128), 0);
  EXPECT_EQ(std::memcmp(&context.chkpt_app, expected.data(), 128), 0);
}

TEST_F(chkpt_init_test, bytes_of_the_table_descriptor) {
  lum_chkpt_init(&context, &restart);
  std::array<uint8_t, 40> expected;
  expected.fill(0x5A);  // the service's defaults
  const uint8_t version[] = {0x03, 0x20, 0x01, 0x00}, one[] = {1, 0, 0, 0},
                entries[] = {0xE4, 0x0F};
  std::memcpy(&expected[8], version, 4);
  std::memcpy(&expected[16], one, 4);
  std::memcpy(&expected[24], entries, 2);
  std::memcpy(&expected[32], one, 4);
  const chkpt_tbldesc given = checkpoints.table();
  EXPECT_EQ(std::memcmp(&given, expected.data(), 40), 0);
}

TEST_F(chkpt_init_test, success_is_traced_with_the_restart_indication) {
  checkpoints.restart = 1;
  lum_chkpt_init(&context, &restart);
  EXPECT_EQ(restart, 1u);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          info(230, "checkpoint init successful\n").of(area),
          info(232, "checkpoint register for global table succeeded, restart: 1\n").of(area)));
}

TEST_F(chkpt_init_test, null_pointers_are_22) {
  EXPECT_EQ(lum_chkpt_init(nullptr, &restart), 22u);
  EXPECT_EQ(lum_chkpt_init(&context, nullptr), 22u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(chkpt_init_test, service_started_before_counts_as_success) {
  script.fail("chkpt_init", 1, 0x20EB8E00);
  EXPECT_EQ(lum_chkpt_init(&context, &restart), 0u);
  EXPECT_THAT(traces(), Contains(info("checkpoint init successful\n")));
  EXPECT_THAT(calls(), Contains("chkpt_register(40)"));
}

TEST_F(chkpt_init_test, failed_init_is_traced_and_returned) {
  script.fail("chkpt_init", 1, 0x20EB8E01);
  EXPECT_EQ(lum_chkpt_init(&context, &restart), 0x20EB8E01u);
  EXPECT_THAT(traces(),
              ElementsAre(error(229, "checkpoint init failed: rc = 552308225\n").of(area)));
  EXPECT_THAT(calls(), Not(Contains("chkpt_register(40)")));
}

TEST_F(chkpt_init_test, failed_register_is_traced_and_returned) {
  script.fail("chkpt_register", 1, 31);
  EXPECT_EQ(lum_chkpt_init(&context, &restart), 31u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info(230, "checkpoint init successful\n"),
                  error(231, "checkpoint register for global table failed: rc = 31\n").of(area)));
  EXPECT_EQ(context.chkpt_table, 0u);
  EXPECT_EQ(restart, 0x55u);
}

// ---- Create ----

TEST_F(chkpt, unknown_key_gets_a_new_record) {
  EXPECT_EQ(lum_chkpt_create(&port()), 0u);
  EXPECT_THAT(calls(service_calls), ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)",
                                                "chkpt_create(0xc0de, 0x30107)"));
  EXPECT_EQ(mirror().created, 1u);
  EXPECT_EQ(mirror().key, rsip);
  EXPECT_EQ(mirror().chkpt_id, 0x501u);
  EXPECT_THAT(lines(),
              ElementsAre(info(235, "checkpoint create succeeded: id 0x501, key 0x30107\n")));
  EXPECT_EQ(lines()[0].signature, "sdsdd");
}

TEST_F(chkpt, key_holds_rack_slot_instance_and_port) {
  lum_port_data &far_port = add_port(0x02F1030A).data;
  clear_record();
  EXPECT_EQ(lum_chkpt_create(&far_port), 0u);
  EXPECT_THAT(calls(service_calls), ElementsAre("chkpt_mapkey(0xc0de, 0x2f1030a, 0x2f10000)",
                                                "chkpt_create(0xc0de, 0x2f1030a)"));
}

TEST_F(chkpt, creating_twice_returns_0_with_the_already_exist_trace) {
  lum_chkpt_create(&port());
  clear_record();
  EXPECT_EQ(lum_chkpt_create(&port()), 0u);
  EXPECT_THAT(lines(), ElementsAre(info(
                           233, "chkpt_id 0x501 for 0x30107 already exist, no need to create\n")));
  EXPECT_THAT(calls(service_calls), IsEmpty());
}

TEST_F(chkpt, traces_show_the_low_half_of_a_64_bit_id) {
  mirror().chkpt_id = 0xAB00000501;
  lum_chkpt_create(&port());
  EXPECT_THAT(lines(),
              ElementsAre(info("chkpt_id 0x501 for 0x30107 already exist, no need to create\n")));
}

TEST_F(chkpt, failed_create_is_traced_and_returned) {
  script.fail("chkpt_create", 1, 61);
  EXPECT_EQ(lum_chkpt_create(&port()), 61u);
  EXPECT_THAT(lines(), ElementsAre(error(234, "Error in chkpt create: rc 61 for key 0x30107\n")));
  EXPECT_TRUE(mirror_is_clear());
}

TEST_F(chkpt, create_without_a_context_is_22) {
  lum_port_data &data = port();
  const context_hidden hidden;
  EXPECT_EQ(lum_chkpt_create(&data), 22u);
  EXPECT_THAT(calls(service_calls), IsEmpty());
}

TEST_F(chkpt, known_key_gives_the_port_its_configuration_back) {
  const lum_chkpt_record earlier = earlier_record(rsip);
  checkpoints.survive(rsip, earlier);
  EXPECT_EQ(lum_chkpt_create(&port()), 0u);
  EXPECT_THAT(calls(service_calls), ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)",
                                                "chkpt_get(0xc0de, 0x501, 0, 96)"));
  EXPECT_THAT(
      lines(),
      ElementsAre(info(246, "checkpoint get for id 0x501, key 0x30107 returns 0 len 96\n").of(area),
                  info(235, "checkpoint create succeeded: id 0x501, key 0x30107\n").of(area)));
  expect_configuration_of(earlier);
  EXPECT_EQ(std::memcmp(&mirror(), &earlier, 96), 0);
}

TEST_F(chkpt, failed_get_leaves_the_configuration_and_is_the_result) {
  checkpoints.survive(rsip, earlier_record(rsip));
  port().port_cfg[0].threshold = 12;
  script.fail("chkpt_get", 1, 62);
  EXPECT_EQ(lum_chkpt_create(&port()), 62u);
  EXPECT_EQ(port().port_cfg[0].threshold, 12u);
  EXPECT_EQ(mirror().created, 1u);
  EXPECT_EQ(mirror().key, rsip);
  EXPECT_EQ(mirror().chkpt_id, 0x501u);
  EXPECT_THAT(lines(),
              ElementsAre(info("checkpoint get for id 0x501, key 0x30107 returns 62 len 96\n"),
                          info("checkpoint create succeeded: id 0x501, key 0x30107\n")));
}

TEST_F(chkpt, record_of_a_wrong_size_is_refused_and_never_loaded) {
  for (const uint32_t size : {50u, 95u, 97u, 200u}) {
    mirror() = {};
    survive_with_size(rsip, size);
    EXPECT_EQ(lum_chkpt_create(&port()), 22u) << size;
    EXPECT_EQ(port().port_cfg[0].threshold, 0u) << size;
    EXPECT_EQ(lum_port_chkpt_delete(&port()), 0u);
  }
}

// ---- Save ----

TEST_F(chkpt, first_save_creates_the_record) {
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  EXPECT_THAT(calls(service_calls),
              ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)", "chkpt_create(0xc0de, 0x30107)",
                          "chkpt_save(0xc0de, 0x501, 96)"));
  EXPECT_THAT(lines(),
              ElementsAre(info("checkpoint create succeeded: id 0x501, key 0x30107\n"),
                          info(237,
                               "saved chkpt entry for rsip [0x30107] with (chkpt_id= 0x501),"
                               "            data size=96\n")
                              .of(area)));
  EXPECT_EQ(lines()[1].signature, "sdsddD");
}

TEST_F(chkpt, later_saves_only_save) {
  lum_chkpt_save(&port());
  clear_record();
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  EXPECT_THAT(calls(service_calls), ElementsAre("chkpt_save(0xc0de, 0x501, 96)"));
}

TEST_F(chkpt, bytes_of_the_saved_record) {
  for (uint32_t at = 0; at < 80; at += 4) put_word<uint32_t>(port().port_cfg, at, 0xA0000000 + at);
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  const lum_chkpt_record saved = checkpoints.record(rsip);
  EXPECT_EQ(word_at<uint32_t>(saved, 0), 1u);
  EXPECT_EQ(word_at<uint32_t>(saved, 4), 0x30107u);
  EXPECT_EQ(word_at<uint64_t>(saved, 8), 0x501u);
  for (uint32_t at = 16; at < 96; at += 4) {
    EXPECT_EQ(word_at<uint32_t>(saved, at), 0xA0000000 + at - 16);
  }
}

TEST_F(chkpt, configuration_bytes_of_the_mirror_are_not_saved) {
  lum_chkpt_save(&port());
  mirror().port_cfg[0].mode = 9;
  lum_chkpt_save(&port());
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[0].mode, 0u);
}

TEST_F(chkpt, save_of_null_and_without_a_context_is_0) {
  lum_port_data &data = port();
  clear_record();
  EXPECT_EQ(lum_chkpt_save(nullptr), 0u);
  const context_hidden hidden;
  EXPECT_EQ(lum_chkpt_save(&data), 0u);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(chkpt, record_that_cannot_be_created_is_not_saved) {
  script.fail("chkpt_create", 1, 63);
  EXPECT_EQ(lum_chkpt_save(&port()), 63u);
  EXPECT_THAT(calls({"chkpt_save"}), IsEmpty());
  EXPECT_EQ(mirror().created, 0u);
}

TEST_F(chkpt, record_that_cannot_be_read_is_not_saved_the_first_time) {
  checkpoints.survive(rsip, earlier_record(rsip));
  script.fail("chkpt_get", 1, 64);
  EXPECT_EQ(lum_chkpt_save(&port()), 64u);
  EXPECT_THAT(calls({"chkpt_save"}), IsEmpty());
  EXPECT_EQ(lum_chkpt_save(&port()), 0u) << "the record counts as created now";
}

TEST_F(chkpt, created_other_than_1_goes_through_creation) {
  lum_chkpt_save(&port());
  mirror().created = 0x101;
  clear_record();
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  EXPECT_THAT(lines()[0], info("chkpt_id 0x501 for 0x30107 already exist, no need to create\n"));
  EXPECT_EQ(checkpoints.record(rsip).created, 1u);
}

TEST_F(chkpt, failed_save_is_traced_and_returned) {
  script.fail("chkpt_save", 1, 65);
  EXPECT_EQ(lum_chkpt_save(&port()), 65u);
  EXPECT_THAT(lines().back(), error(236,
                                    "chkpt save entry failed for rsip [0x30107]            "
                                    "(chkpt_id= 0x501), data size=96, rc 65\n")
                                  .of(area));
  EXPECT_EQ(lines().back().signature, "sdsddDd");
}

// Two changes of one port at the same time: what is saved last is the whole of both.
TEST_F(chkpt, saves_from_two_threads_reach_the_table_in_order) {
  const lum_hw_info_in record = {};
  const auto configure = [&record](uint32_t ifhandle, uint64_t bits) {
    for (int i = 0; i < 200; ++i) lum_set_hw_info(1, &ifhandle, &record, &bits);
  };
  std::thread first(configure, handle_0, 0x100000);
  std::thread second(configure, handle_1, 0x200000);
  first.join();
  second.join();
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[0].changed_bits, 0x100000u);
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[1].changed_bits, 0x200000u);
}

// ---- Recovery ----

TEST_F(chkpt, recovery_with_an_empty_table_traces_only_recovery_complete) {
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 0u);
  EXPECT_THAT(lines(), ElementsAre(info(242, "Recovery complete \n").of(area)));
  EXPECT_THAT(calls(service_calls),
              ElementsAre("chkpt_iterate_start(0xc0de)", "chkpt_iterate_next(0x17e2, 0, 96)",
                          "chkpt_iterate_end(0x17e2)"));
}

TEST_F(chkpt, recovery_of_null_is_22) {
  EXPECT_EQ(lum_port_chkpt_recover(nullptr), 22u);
  EXPECT_THAT(calls(service_calls), IsEmpty());
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(chkpt, recovery_that_cannot_start_is_traced_and_returned) {
  script.fail("chkpt_iterate_start", 1, 66);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 66u);
  EXPECT_THAT(lines(), ElementsAre(error(238, "Error in chkpt iterate start: rc 66\n").of(area)));
  EXPECT_THAT(calls(service_calls), ElementsAre("chkpt_iterate_start(0xc0de)"));
}

TEST_F(chkpt, recovery_traces_every_record) {
  lum_chkpt_record first = earlier_record(0x90001), second = earlier_record(0x90002);
  first.chkpt_id = 0xAA;
  second.chkpt_id = 0xBB;
  checkpoints.survive(0x90001, first);
  checkpoints.survive(0x90002, second);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 0u);
  EXPECT_THAT(
      lines(),
      ElementsAre(info(240, "[recovered pending] [0x90001] with (chkpt_id= 0xaa)\n").of(area),
                  info(240, "[recovered pending] [0x90002] with (chkpt_id= 0xbb)\n"),
                  info(242, "Recovery complete \n")));
}

TEST_F(chkpt, recovery_fills_the_mirror_of_a_port_that_exists_not_its_configuration) {
  const lum_chkpt_record earlier = earlier_record(rsip);
  checkpoints.survive(rsip, earlier);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 0u);
  EXPECT_EQ(std::memcmp(&mirror(), &earlier, 96), 0);
  EXPECT_EQ(port().port_cfg[0].threshold, 0u);
}

TEST_F(chkpt, recovery_goes_by_the_key_inside_the_record) {
  add_port(second_rsip);
  checkpoints.survive(0x90001, earlier_record(second_rsip));
  lum_port_chkpt_recover(lum_get_ctx());
  EXPECT_EQ(data_at(second_rsip).chkpt.key, second_rsip);
  EXPECT_TRUE(mirror_is_clear());
}

TEST_F(chkpt, failed_step_is_traced_and_ends_the_recovery) {
  checkpoints.survive(0x90001, earlier_record(0x90001));
  script.fail("chkpt_iterate_next", 2, 67);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 0u) << "the end call's result";
  EXPECT_THAT(lines(), ElementsAre(starting("[recovered pending] [0x90001]"),
                                   error(239, "chkpt_iterate_next failed: rc 67\n").of(area),
                                   info("Recovery complete \n")));
  EXPECT_THAT(calls({"chkpt_iterate_end"}), SizeIs(1));
}

TEST_F(chkpt, failed_end_is_traced_with_its_text_and_returned) {
  script.fail("chkpt_iterate_end", 1, 68);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 68u);
  EXPECT_THAT(
      lines(),
      ElementsAre(error(241, "Unable to end imdr chkpt iteration. Error: error 68\n").of(area),
                  info(242, "Recovery complete \n")));
}

TEST_F(chkpt, recovery_passes_over_records_of_a_wrong_size) {
  survive_with_size(rsip, 50);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 0u);
  EXPECT_THAT(lines(), ElementsAre(info("Recovery complete \n")));
  EXPECT_TRUE(mirror_is_clear());
}

// ---- Restart ----

// Slot 5 as an earlier process has left it.
class chkpt_restart : public testing::Test {
 protected:
  void SetUp() override {
    checkpoints.restart = 1;
    lum_chkpt_record record = {};
    record.created = 1;
    record.key = 0x50002;
    record.chkpt_id = 0x501;
    record.port_cfg[0] = {20, 0, 0, 0, 0, 3, 0, 0, 0x40002};
    record.port_cfg[1] = {0, 0, 48, 33, 1, 0, 1, 0, 0x10000000};
    checkpoints.survive(0x50002, record);
    lum_infra_params params = parameters();
    params.restart = 1;
    ASSERT_EQ(boot(params), 0u);
  }
};

TEST_F(chkpt_restart, start_up_only_traces_the_records) {
  EXPECT_THAT(
      traces(),
      lines_in_order({info("rc of modules init = 0\n"),
                      info(240, "[recovered pending] [0x50002] with (chkpt_id= 0x501)\n").of(area),
                      info(242, "Recovery complete \n"),
                      info("Checkpoint recover done with rc 0.\n")}));
}

TEST_F(chkpt_restart, port_whose_key_exists_gets_its_configuration_at_its_first_creation) {
  create_ports(5, 0, {2});
  const lum_port_data &data = data_at(0x50002);
  EXPECT_EQ(data.port_cfg[0].threshold, 20u);
  EXPECT_EQ(data.port_cfg[0].mode, 3u);
  EXPECT_EQ(data.port_cfg[0].changed_bits, 0x40002u);
  EXPECT_EQ(data.port_cfg[1].setting_a, 48u);
  EXPECT_EQ(data.port_cfg[1].changed_bits, 0x10000000u);
  EXPECT_THAT(calls({"chkpt_create"}), IsEmpty());
}

TEST_F(chkpt_restart, port_without_a_record_gets_a_new_one) {
  create_ports(5, 0, {3});
  EXPECT_EQ(data_at(0x50003).port_cfg[0].threshold, 0u);
  EXPECT_THAT(calls({"chkpt_create"}), ElementsAre("chkpt_create(0xc0de, 0x50003)"));
}

TEST_F(chkpt_restart, next_update_pushes_the_recovered_settings_into_the_module) {
  module_memory &module = modules.at(5, 0, 2);
  create_ports(5, 0, {2});
  EXPECT_EQ(module.at(3, 133), 0);
  EXPECT_EQ(lum_update_port(0, 5, 0, 2, 3), 0u);
  EXPECT_EQ(module.at(3, 133), 2);
  EXPECT_EQ(module.be16_at(2, 146), 200);
  EXPECT_EQ(module.be16_at(3, 129), 480);
}

// ---- Delete ----

TEST_F(chkpt, delete_removes_the_record_and_clears_the_mirror) {
  lum_chkpt_save(&port());
  mirror().port_cfg[1].mode = 7;
  clear_record();
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 0u);
  EXPECT_THAT(calls(service_calls),
              ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)", "chkpt_delete(0xc0de, 0x501)"));
  EXPECT_THAT(lines(),
              ElementsAre(info(245, "checkpoint record deleted for chkpt_id 0x501\n").of(area)));
  EXPECT_FALSE(checkpoints.has(rsip));
  EXPECT_TRUE(mirror_is_clear());
}

TEST_F(chkpt, delete_finds_the_record_by_its_key_not_by_the_mirror) {
  lum_chkpt_save(&port());
  mirror().chkpt_id = 0x999;
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 0u);
  EXPECT_THAT(calls(), Contains("chkpt_delete(0xc0de, 0x501)"));
}

TEST_F(chkpt, deleting_an_unknown_key_returns_the_lookups_rc_and_deletes_nothing) {
  mirror() = earlier_record(rsip);
  mirror().created = 0x30201;
  script.fail("chkpt_mapkey", 1, 69);
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 69u);
  EXPECT_EQ(mirror().created, 0x30200u) << "only the low byte is cleared";
  EXPECT_EQ(mirror().chkpt_id, 0u);
  EXPECT_EQ(mirror().key, rsip);
  EXPECT_EQ(mirror().port_cfg[0].threshold, 0x110u);
  EXPECT_THAT(calls({"chkpt_delete"}), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre(error(243,
                                         "failed to find checkpoint record for chkpt_id 0x501, "
                                         "key 0x30107 rc 69\n")
                                       .of(area)));
}

TEST_F(chkpt, deleting_a_port_without_a_record_is_the_services_not_found) {
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 2u);
  EXPECT_THAT(lines(),
              ElementsAre(error("failed to find checkpoint record for chkpt_id 0x0, key 0x30107 rc "
                                "2\n")));
  EXPECT_TRUE(mirror_is_clear());
}

TEST_F(chkpt, failed_delete_leaves_the_mirror) {
  lum_chkpt_save(&port());
  const lum_chkpt_record before = mirror();
  script.fail("chkpt_delete", 1, 70);
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 70u);
  EXPECT_EQ(std::memcmp(&mirror(), &before, 96), 0);
  EXPECT_THAT(
      lines().back(),
      error(244, "failed to delete checkpoint record for chkpt_id 0x501, rc 70\n").of(area));
}

TEST_F(chkpt, delete_of_null_and_without_a_context_is_22) {
  lum_port_data &data = port();
  EXPECT_EQ(lum_port_chkpt_delete(nullptr), 22u);
  const context_hidden hidden;
  EXPECT_EQ(lum_port_chkpt_delete(&data), 22u);
  EXPECT_THAT(calls(service_calls), IsEmpty());
}

TEST_F(chkpt, deleted_port_can_get_a_record_again) {
  port().port_cfg[0].mode = 3;
  lum_chkpt_save(&port());
  lum_port_chkpt_delete(&port());
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  EXPECT_EQ(mirror().chkpt_id, 0x502u);
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[0].mode, 3u);
}

TEST_F(chkpt, record_goes_with_the_ports_controllers) {
  create_ports(4, 0, {1, 2});
  EXPECT_TRUE(checkpoints.has(0x40001));
  const uint32_t number = 1;
  EXPECT_EQ(lum_delete_ports(0, 4, 0, 1, &number), 0u);
  im.answer_all();
  EXPECT_FALSE(checkpoints.has(0x40001));
  EXPECT_TRUE(checkpoints.has(0x40002));
}

}  // namespace
