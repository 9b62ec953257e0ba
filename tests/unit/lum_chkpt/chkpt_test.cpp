// Checkpoint records: one per port, created, saved, deleted.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "chkpt_helpers.h"

namespace chkpt_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_chkpt";

// ---- Create ----

TEST_F(chkpt, unknown_key_gets_a_new_record) {
  EXPECT_EQ(lum_chkpt_create(&port()), 0u);
  EXPECT_THAT(calls(record_calls), ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)",
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
  EXPECT_THAT(calls(record_calls), ElementsAre("chkpt_mapkey(0xc0de, 0x2f1030a, 0x2f10000)",
                                               "chkpt_create(0xc0de, 0x2f1030a)"));
}

TEST_F(chkpt, creating_twice_returns_0_with_the_already_exist_trace) {
  lum_chkpt_create(&port());
  expect_nothing_to_create();
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

TEST_F(chkpt, record_that_exists_needs_no_context) {
  lum_port_data &data = port();
  mirror().chkpt_id = 0x501;
  const context_hidden hidden;
  EXPECT_EQ(lum_chkpt_create(&data), 0u);
  EXPECT_THAT(lines(), ElementsAre(info(
                           233, "chkpt_id 0x501 for 0x30107 already exist, no need to create\n")));
}

TEST_F(chkpt, create_without_a_context_is_22) {
  lum_port_data &data = port();
  const context_hidden hidden;
  EXPECT_EQ(lum_chkpt_create(&data), 22u);
  EXPECT_THAT(calls(record_calls), IsEmpty());
}

TEST_F(chkpt, known_key_gives_the_port_its_configuration_back) {
  const lum_chkpt_record earlier = earlier_record(rsip);
  checkpoints.survive(rsip, earlier);
  EXPECT_EQ(lum_chkpt_create(&port()), 0u);
  EXPECT_THAT(calls(record_calls), ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)",
                                               "chkpt_get(0xc0de, 0x501, 0, 96)"));
  EXPECT_THAT(
      lines(),
      ElementsAre(info(246, "checkpoint get for id 0x501, key 0x30107 returns 0 len 96\n").of(area),
                  info(235, "checkpoint create succeeded: id 0x501, key 0x30107\n").of(area)));
  expect_configuration_of(earlier);
  EXPECT_EQ(std::memcmp(&mirror(), &earlier, 96), 0);
}

// Saves go by the id inside the record, a deletion by the service's.
TEST_F(chkpt, record_with_another_id_in_it_is_loaded_with_that_id) {
  lum_chkpt_record earlier = earlier_record(rsip);
  earlier.chkpt_id = 0x777;
  checkpoints.survive(rsip, earlier);
  EXPECT_EQ(lum_chkpt_create(&port()), 0u);
  EXPECT_THAT(lines(),
              ElementsAre(info(246, "checkpoint get for id 0x501, key 0x30107 returns 0 len 96\n"),
                          info(235, "checkpoint create succeeded: id 0x777, key 0x30107\n")));
  EXPECT_EQ(mirror().chkpt_id, 0x777u);
  clear_record();
  lum_chkpt_save(&port());
  EXPECT_THAT(calls(record_calls), ElementsAre("chkpt_save(0xc0de, 0x777, 96)"));
  clear_record();
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 0u);
  EXPECT_THAT(calls(record_calls),
              ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)", "chkpt_delete(0xc0de, 0x501)"));
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

TEST_F(chkpt, record_that_could_not_be_read_counts_as_created) {
  checkpoints.survive(rsip, earlier_record(rsip));
  script.fail("chkpt_get", 1, 62);
  lum_chkpt_create(&port());
  expect_nothing_to_create();
  EXPECT_EQ(port().port_cfg[0].threshold, 0u);
}

TEST_F(chkpt, length_that_the_service_left_is_traced) {
  checkpoints.survive(rsip, earlier_record(rsip));
  checkpoints.length_of_failed_get = 50;
  script.fail("chkpt_get", 1, 62);
  lum_chkpt_create(&port());
  EXPECT_THAT(lines(),
              Contains(info(246, "checkpoint get for id 0x501, key 0x30107 returns 62 len 50\n")));
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
  EXPECT_THAT(calls(record_calls),
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
  EXPECT_THAT(calls(record_calls), ElementsAre("chkpt_save(0xc0de, 0x501, 96)"));
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

TEST_F(chkpt, first_save_over_a_record_of_an_earlier_process_takes_its_configuration) {
  const lum_chkpt_record earlier = earlier_record(rsip);
  checkpoints.survive(rsip, earlier);
  port().port_cfg[0].threshold = 12;
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  EXPECT_THAT(calls(record_calls),
              ElementsAre("chkpt_mapkey(0xc0de, 0x30107, 0x30000)",
                          "chkpt_get(0xc0de, 0x501, 0, 96)", "chkpt_save(0xc0de, 0x501, 96)"));
  expect_configuration_of(earlier);
  const lum_chkpt_record saved = checkpoints.record(rsip);
  EXPECT_EQ(std::memcmp(saved.port_cfg, earlier.port_cfg, 80), 0);
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

// ---- Delete ----

TEST_F(chkpt, delete_removes_the_record_and_clears_the_mirror) {
  lum_chkpt_save(&port());
  mirror().port_cfg[1].mode = 7;
  clear_record();
  EXPECT_EQ(lum_port_chkpt_delete(&port()), 0u);
  EXPECT_THAT(calls(record_calls),
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
  EXPECT_THAT(calls(record_calls), IsEmpty());
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

}  // namespace chkpt_test
