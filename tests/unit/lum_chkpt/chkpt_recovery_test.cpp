// Checkpoint storage at start-up: its registration, the walk over an earlier process's records, and
// what a restarted process gets back.
#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "chkpt_helpers.h"

namespace chkpt_recovery_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr const char *area = "lum_chkpt";
constexpr uint32_t second_rsip = 0x30108;

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
  EXPECT_EQ(context.chkpt_table, chkpt_table);
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

// ---- Recovery ----

TEST_F(chkpt, recovery_with_an_empty_table_traces_only_recovery_complete) {
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 0u);
  EXPECT_THAT(lines(), ElementsAre(info(242, "Recovery complete \n").of(area)));
  EXPECT_THAT(calls(record_calls),
              ElementsAre("chkpt_iterate_start(0xc0de)", "chkpt_iterate_next(0x17e2, 0, 96)",
                          "chkpt_iterate_end(0x17e2)"));
}

TEST_F(chkpt, recovery_of_null_is_22) {
  EXPECT_EQ(lum_port_chkpt_recover(nullptr), 22u);
  EXPECT_THAT(calls(record_calls), IsEmpty());
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(chkpt, recovery_that_cannot_start_is_traced_and_returned) {
  script.fail("chkpt_iterate_start", 1, 66);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 66u);
  EXPECT_THAT(lines(), ElementsAre(error(238, "Error in chkpt iterate start: rc 66\n").of(area)));
  EXPECT_THAT(calls(record_calls), ElementsAre("chkpt_iterate_start(0xc0de)"));
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

TEST_F(chkpt, failed_step_and_failed_end_are_both_traced_and_the_ends_code_returned) {
  script.fail("chkpt_iterate_next", 1, 67);
  script.fail("chkpt_iterate_end", 1, 68);
  EXPECT_EQ(lum_port_chkpt_recover(lum_get_ctx()), 68u);
  EXPECT_THAT(lines(),
              ElementsAre(error(239, "chkpt_iterate_next failed: rc 67\n"),
                          error(241, "Unable to end imdr chkpt iteration. Error: error 68\n"),
                          info(242, "Recovery complete \n")));
}

// The mirror's id says that it has one; what is configured stays.
TEST_F(chkpt, port_that_exists_at_recovery_needs_no_record_any_more) {
  checkpoints.survive(rsip, earlier_record(rsip));
  lum_port_chkpt_recover(lum_get_ctx());
  expect_nothing_to_create();
  EXPECT_EQ(port().port_cfg[0].threshold, 0u);
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

}  // namespace

}  // namespace chkpt_recovery_test
