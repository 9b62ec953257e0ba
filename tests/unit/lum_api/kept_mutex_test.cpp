// A port between its deletion and the moment it goes, when the batch is refused or not answered:
// who may still use its module, and what ends the deletion.
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>

#include "base/locks.h"
#include "base/shared.h"
#include "controllers.h"
#include "lum_ports_db/node_keeper.h"

namespace kept_mutex_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr uint32_t port_number = 7;

int trylock_elsewhere(uint32_t rsip) {
  pthread_mutex_t &mutex = data_at(rsip).port_mutex;
  int rc = -1;
  on_another_thread([&] {
    rc = pthread_mutex_trylock(&mutex);
    if (rc == 0) pthread_mutex_unlock(&mutex);
  });
  return rc;
}

class kept_mutex : public created_ports {
 protected:
  // A deletion that the interface manager refuses, from a thread that ends.
  static void remove_in_vain() {
    script.fail_first("im_req_by_name", 1, 31);
    on_another_thread([] { EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 31u); });
    script.forget();
  }
  // What makes a port polled again: an insertion and the answer to a replay.
  static void bring_back() {
    EXPECT_EQ(lum_update_vendor_info(first, 1), 0u);
    EXPECT_EQ(lum_replay_controllers(), 0u);
    im.answer_all();
    EXPECT_EQ(data_at(first).is_dom_enabled, 1);
    EXPECT_EQ(data_at(first).transceiver_disabled, 0);
    clear_record();
  }
};

TEST_F(kept_mutex, exported_mutex_is_busy_for_every_other_thread_until_the_port_goes) {
  EXPECT_EQ(trylock_elsewhere(first), 0);
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 0u);
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
  EXPECT_EQ(trylock_elsewhere(second), 0);
  im.answer_all();
  EXPECT_EQ(lum_ports_db_find_entry(first), nullptr);
}

// A pass that found its port before it went: what it writes would reach the module of the next one.
TEST_F(kept_mutex, pass_on_a_port_that_has_gone_leaves_the_module_of_the_port_created_again_alone) {
  const lum::ports_reader reader;
  lum_port_data &gone = data_at(first);
  ASSERT_EQ(lum_ports_db_remove_entry(first), 0u);
  add_port(first);
  clear_record();
  EXPECT_EQ(lum_provision_port_cfg_data(0, &gone, 0x40000), 0u);
  EXPECT_THAT(calls({"i2c_write_byte"}), IsEmpty());
}

TEST_F(kept_mutex, exported_mutex_stays_busy_after_the_thread_of_the_deletion_has_ended) {
  remove_in_vain();
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
  EXPECT_EQ(pthread_mutex_trylock(&data_at(first).port_mutex), EBUSY);
}

TEST_F(kept_mutex, deletions_from_threads_that_end_never_set_it_free) {
  for (int i = 0; i < 50; ++i) {
    remove_in_vain();
    ASSERT_EQ(trylock_elsewhere(first), EBUSY) << "after deletion " << i;
    ASSERT_NE(data_at(first).mutex_kept_by, 0u);
  }
}

TEST_F(kept_mutex, exported_mutex_is_busy_after_those_who_waited_were_sent_back) {
  pthread_mutex_t &mutex = data_at(first).port_mutex;
  ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
  std::thread pass([] { lum_provision_port_cfg_data(0, &data_at(first), 0x40000); });
  wait_for_block("lum_provision_port_cfg_data");
  std::thread deletion([] { lum_delete_ports(0, 3, 0, 1, &port_number); });
  wait_for_block("lum_delete_ports");
  ASSERT_EQ(pthread_mutex_unlock(&mutex), 0);
  pass.join();
  deletion.join();
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
}

// ---- While it is kept ----

TEST_F(kept_mutex, port_that_was_brought_back_is_passed_by_in_every_cycle) {
  remove_in_vain();
  bring_back();
  polling.run_cycles(2);
  EXPECT_THAT(calls({"i2c_read_block"}),
              Not(Contains(testing::StartsWith("i2c_read_block(3, 0, 7,"))));
  std::vector<trace_line> passed;
  for (const trace_line &line : traces()) {
    if (line.point == 15) passed.push_back(line);
  }
  EXPECT_THAT(passed, ElementsAre(info(15, "DOM thread: DOM is disabled-2for rsip=0x30007\n"),
                                  info(15, "DOM thread: DOM is disabled-2for rsip=0x30007\n")));
}

TEST_F(kept_mutex, polling_tells_of_an_earlier_failed_transfer_and_passes_the_port_by) {
  modules.at(3, 0, 8).fail_transfers(6);
  polling.run_cycle();
  modules.at(3, 0, 8).fail_transfers(0);
  remove_in_vain();
  bring_back();
  polling.run_cycle();
  EXPECT_THAT(traces(), lines_in_order({error(14, "module access lock failed with rc 6 \n"),
                                        info(15, "DOM thread: DOM is disabled-2for rsip=0x30007\n"),
                                        error(14, "module access lock failed with rc 6 \n")}));
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
}

TEST_F(kept_mutex, provisioning_makes_two_traces_no_transfer_and_ends_with_the_refused_release) {
  remove_in_vain();
  bring_back();
  on_another_thread([] {
    EXPECT_EQ(lum_provision_port_cfg_data(1, &data_at(first), 0x40000 | 0x2 | 0x200 | 0x10000000),
              0u);
  });
  EXPECT_THAT(traces(),
              ElementsAre(info(125, "subport 1 RSIP 0/3/0/7\n"),
                          info(126, "subport 1 changed bits: [0x10040202] RSIP 0/3/0/7\n"),
                          error(127, "module access unlock failed with rc 1 \n")));
  EXPECT_THAT(calls({"i2c_write_byte", "i2c_read_block"}), IsEmpty());
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
}

TEST_F(kept_mutex, provisioning_by_the_thread_of_the_deletion_does_not_set_it_free) {
  script.fail_first("im_req_by_name", 1, 31);
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 31u);
  script.forget();
  bring_back();
  EXPECT_EQ(lum_provision_port_cfg_data(0, &data_at(first), 0x40000), 0u);
  EXPECT_THAT(traces(), lines_in_order({info(125, "subport 0 RSIP 0/3/0/7\n"),
                                        error(127, "module access unlock failed with rc 1 \n")}));
  EXPECT_THAT(calls({"i2c_write_byte"}), IsEmpty());
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
}

TEST_F(kept_mutex, setting_is_kept_for_later_and_not_written) {
  remove_in_vain();
  bring_back();
  lum_hw_info_in record = {};
  const uint64_t bits = LUM_CHANGE_MODE;
  const uint32_t ifhandle = data_at(first).sub_port[0].ifhandle;
  EXPECT_EQ(lum_set_hw_info(1, &ifhandle, &record, &bits), 0u);
  EXPECT_THAT(calls({"i2c_write_byte"}), IsEmpty());
  EXPECT_EQ(data_at(first).port_cfg[0].changed_bits, bits);
}

TEST_F(kept_mutex, insertion_reads_the_modules_identity_all_the_same) {
  remove_in_vain();
  EXPECT_EQ(lum_update_vendor_info(first, 1), 0u);
  EXPECT_THAT(
      calls({"i2c_read_block", "i2c_read_byte"}),
      ElementsAre("i2c_read_block(3, 0, 7, 3, 128, 128)", "i2c_read_block(3, 0, 7, 0, 128, 128)",
                  "i2c_read_byte(3, 0, 7, 0, 39)", "i2c_read_byte(3, 0, 7, 0, 40)"));
}

TEST_F(kept_mutex, degraded_visit_that_has_begun_is_made_to_its_end) {
  modules.at(3, 0, 8).fail_transfers(6);
  polling.run_cycle();
  std::atomic<int> reads{0};
  std::atomic<bool> reading{false}, go_on{false};
  modules.before_transfer = [&] {
    if (reads++ != 0) return;
    reading = true;
    while (!go_on) std::this_thread::yield();
  };
  clear_record();
  polling.start_cycle();
  while (!reading) std::this_thread::yield();
  remove_in_vain();
  lum::shared_store(data_at(first).transceiver_disabled, 0);
  go_on = true;
  polling.wait_asleep();
  modules.before_transfer = nullptr;
  EXPECT_THAT(calls({"i2c_read_block"}), Contains("i2c_read_block(3, 0, 7, 3, 128, 23)"));
  EXPECT_EQ(trylock_elsewhere(first), EBUSY) << "its second release was refused";
}

TEST_F(kept_mutex, lock_that_fails_for_another_reason_goes_on_as_ever) {
  script.fail("pthread_mutex_trylock", 1, 22, &data_at(first).port_mutex);
  EXPECT_EQ(lum_provision_port_cfg_data(0, &data_at(first), 0x40000), 0u);
  EXPECT_THAT(calls({"i2c_write_byte"}), SizeIs(1));
}

// ---- What ends it ----

TEST_F(kept_mutex, second_deletion_by_the_same_thread_gets_35_and_sets_it_free) {
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 0u);
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 0u);
  EXPECT_EQ(trylock_elsewhere(first), 0);
  EXPECT_THAT(traces(), Contains(error(44, "module access lock failed with rc 35\n")));
  EXPECT_EQ(data_at(first).deletion_asked, 1) << "it is on its way out all the same";
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 0u);
  EXPECT_EQ(trylock_elsewhere(first), EBUSY);
}

TEST_F(kept_mutex, completions_release_answers_1_without_asking_the_mutex) {
  on_another_thread([] { EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 0u); });
  watch(data_at(first).port_mutex, "port 7");
  clear_record();
  im.answer_all();
  EXPECT_THAT(traces(), Contains(error(62, "module access unlock failed with rc 1\n")));
  EXPECT_THAT(calls({"pthread_mutex_unlock"}), IsEmpty());
}

// A node without a place among the handles, so that it stays when its creation names it again.
TEST_F(kept_mutex, creation_that_names_the_port_again_makes_its_mutex_anew) {
  constexpr uint32_t third = 0x30009;
  static constexpr uint32_t number = 9;
  ASSERT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &number), 0u);
  on_another_thread([] { lum_delete_ports(0, 3, 0, 1, &number); });
  ASSERT_EQ(trylock_elsewhere(third), EBUSY);
  ASSERT_EQ(data_at(third).deletion_asked, 1);
  const auto props = props_of({third});
  lum_create_ports(1, props.data());
  EXPECT_EQ(data_at(third).deletion_asked, 0);
  EXPECT_EQ(data_at(third).mutex_kept_by, 0u);
  pthread_mutex_t &mutex = data_at(third).port_mutex;
  EXPECT_EQ(pthread_mutex_lock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_lock(&mutex), EDEADLK);
  EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
}

// ---- The fact ----

TEST_F(kept_mutex, that_a_deletion_was_asked_for_stands_on_the_port) {
  EXPECT_EQ(data_at(first).deletion_asked, 0);
  remove_in_vain();
  EXPECT_EQ(data_at(first).deletion_asked, 1);
  EXPECT_EQ(data_at(second).deletion_asked, 0);
  bring_back();
  EXPECT_EQ(data_at(first).deletion_asked, 1);
}

TEST_F(kept_mutex, port_that_is_created_after_it_went_starts_without_the_fact) {
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 1, &port_number), 0u);
  im.answer_all();
  const auto props = props_of({first});
  EXPECT_EQ(lum_create_ports(1, props.data()), 0u);
  EXPECT_EQ(data_at(first).deletion_asked, 0);
  EXPECT_EQ(trylock_elsewhere(first), 0);
}

TEST_F(kept_mutex, new_node_takes_nothing_of_it_from_its_template) {
  remove_in_vain();
  ASSERT_EQ(lum_ports_db_add_entry(0x50505, &data_at(first)), 0u);
  EXPECT_EQ(data_at(0x50505).deletion_asked, 0);
  EXPECT_EQ(data_at(0x50505).mutex_kept_by, 0u);
  EXPECT_EQ(trylock_elsewhere(0x50505), 0);
}

}  // namespace

}  // namespace kept_mutex_test
