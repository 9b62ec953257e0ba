// Ports on their way out, and everybody who meets the mutex that a deletion keeps.
#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "base/locks.h"
#include "base/shared.h"
#include "blocks.h"
#include "controllers.h"
#include "lum_ports_db/node_keeper.h"

namespace port_deletion_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

const area lum_api = {"lum_api"};
const area lum_pd_data = {"lum_pd_data"};

class deletion : public created_ports {
 protected:
  static cerrno remove(const std::vector<uint32_t> &ports) {
    return lum_delete_ports(0, 3, 0, static_cast<uint32_t>(ports.size()), ports.data());
  }
  static bool exists(uint32_t rsip) { return lum_ports_db_find_entry(rsip) != nullptr; }
  // What another thread is told that wants the port's mutex.
  static int lock_elsewhere(uint32_t rsip) {
    int error = 0;
    lum_port_data &port = data_at(rsip);
    on_another_thread([&] { error = lum::port_hold(port, {"test", 1}).error(); });
    return error;
  }
  static std::vector<trace_line> lock_failures() {
    std::vector<trace_line> found;
    for (const trace_line &line : traces()) {
      if (starts(line, "module access lock failed")) found.push_back(line);
    }
    return found;
  }
  static bool starts(const trace_line &line, const char *beginning) {
    return line.text.rfind(beginning, 0) == 0;
  }
};

TEST_F(deletion, traces_each_step_and_the_whole_database) {
  EXPECT_EQ(remove({7}), 0u);
  const auto lines = traces();
  ASSERT_GE(lines.size(), 9u);
  EXPECT_THAT(std::vector(lines.begin(), lines.begin() + 8),
              ElementsAre(lum_api.says("dddd", "LUM_API: entry: R/S/I:0/3/0/ num_ports:1\n"),
                          lum_api.says("ddddd", "[0] port to be deleted 0/3/0/7\n"),
                          lum_api.says("d", "DOM stopped for rsip=0x30007\n"),
                          lum_api.says("d", "delete ports: after lock for rsip=0x30007\n"),
                          lum_api.says("dddd", "proceeding with delete port R/S/I/P: 0/3/0/7\n"),
                          lum_api.says("ddd", "proceeding with delete ports R/S/I: 0/3/0/\n"),
                          lum_api.says("dd", "rsip=0x30007 xcvr_disabled=0x1\n"),
                          lum_api.says("dd", "rsip=0x30008 xcvr_disabled=0x0\n")));
  EXPECT_THAT(lines.back(), lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc: 0\n"));
}

TEST_F(deletion, stops_the_polling_before_it_takes_the_mutex) {
  watch(data_at(first).port_mutex, "port 7");
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_THAT(
      story({"pthread_mutex_trylock", "im_req_by_name"}),
      texts_in_order({"LUM_INFO: DOM stopped for rsip=0x30007\n", "pthread_mutex_trylock(port 7)",
                      "LUM_INFO: delete ports: after lock for rsip=0x30007\n",
                      "LUM_INFO: controller DELETE for 0 3 0 is initiated\n",
                      "im_req_by_name(188, 2, 0x80000005, 2)"}));
  EXPECT_EQ(data_at(first).is_dom_enabled, 0);
  EXPECT_EQ(data_at(first).transceiver_disabled, 1);
  EXPECT_EQ(data_at(second).is_dom_enabled, 1);
}

TEST_F(deletion, mutex_is_kept_when_the_lock_is_traced_and_not_before) {
  std::vector<bool> kept;
  at_trace = [&](const trace_line &line) {
    if (starts(line, "DOM stopped") || starts(line, "delete ports: after lock")) {
      kept.push_back(data_at(first).mutex_kept_by != 0);
    }
  };
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_THAT(kept, ElementsAre(false, true));
}

// The port number runs over into the instance; the controllers are looked up by their own place.
TEST_F(deletion, port_number_above_255_stops_the_port_of_the_sum_but_finds_no_controllers) {
  add_created_port(0x30107, 0x2001, 0x2002);
  clear_record();
  EXPECT_EQ(remove({0x107}), 22u);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.says("d", "DOM stopped for rsip=0x30107\n"),
                              error("controller_delete, lum_get_ifname_from_ctx failed,ifh:0x0,"
                                    "rc:0x16[error 22]"),
                              lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc: 22\n")}));
  EXPECT_NE(data_at(0x30107).mutex_kept_by, 0u);
}

TEST_F(deletion, node_stays_until_the_interface_manager_confirms) {
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_TRUE(exists(first));
  im.answer_all();
  EXPECT_FALSE(exists(first));
  EXPECT_TRUE(exists(second));
}

TEST_F(deletion, of_a_port_that_is_not_in_the_database_leaves_it_out_of_the_batch) {
  EXPECT_EQ(remove({44, 8}), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.says("ddddd", "[0] port to be deleted 0/3/0/44\n"),
                              lum_api.complains("d", "Port not found in DB for rsip=0x3002c\n"),
                              lum_api.says("ddddd", "[1] port to be deleted 0/3/0/8\n"),
                              lum_api.says("d", "DOM stopped for rsip=0x30008\n")}));
  EXPECT_THAT(traces(), Not(Contains(starting("proceeding with delete port R/S/I/P: 0/3/0/44"))));
  EXPECT_EQ(im.batches.back().count, 2u);
  EXPECT_EQ(im.batches.back().names[0], "Ots0_3_0_8_0");
}

TEST_F(deletion, of_an_empty_list_still_walks_and_traces_the_whole_database) {
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 0, nullptr), 22u);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.says("dddd", "LUM_API: entry: R/S/I:0/3/0/ num_ports:0\n"),
                              lum_api.says("ddd", "proceeding with delete ports R/S/I: 0/3/0/\n"),
                              lum_api.says("dd", "rsip=0x30007 xcvr_disabled=0x0\n"),
                              lum_api.says("dd", "rsip=0x30008 xcvr_disabled=0x0\n"),
                              lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc: 22\n")}));
  EXPECT_EQ(im.batches.size(), 1u);
}

TEST_F(deletion, without_memory_is_traced_and_returns_12) {
  script.fail("calloc", 1, 1);
  EXPECT_EQ(remove({7}), 12u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.says("dddd", "LUM_API: entry: R/S/I:0/3/0/ num_ports:1\n"),
                          lum_api.complains("dd", "Slot 3 inst 0 calloc failed in del ports\n")));
  EXPECT_EQ(data_at(first).is_dom_enabled, 1);
}

TEST_F(deletion, failing_lock_is_traced_released_and_the_deletion_goes_on) {
  watch(data_at(first).port_mutex, "port 7");
  script.fail("pthread_mutex_trylock", 1, 22, &data_at(first).port_mutex);
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_unlock"}),
              ElementsAre("pthread_mutex_trylock(port 7)", "pthread_mutex_unlock(port 7)"));
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.complains("d", "module access lock failed with rc 22\n"),
                              lum_api.says("d", "delete ports: after lock for rsip=0x30007\n")}));
  EXPECT_EQ(im.batches.size(), 2u);
}

TEST_F(deletion, result_of_the_refused_batch_is_returned) {
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(remove({7}), 31u);
  EXPECT_THAT(traces().back(), lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc: 31\n"));
}

// ---- The mutex that the deletion keeps ----

TEST_F(deletion, deleted_ports_mutex_stays_locked) {
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_NE(data_at(first).mutex_kept_by, 0u);
  EXPECT_EQ(lock_elsewhere(first), ECANCELED);
  EXPECT_EQ(lock_elsewhere(first), ECANCELED);
  EXPECT_EQ(lock_elsewhere(second), 0);
}

TEST_F(deletion, second_deletion_from_another_thread_comes_back_with_125_traced) {
  EXPECT_EQ(remove({7}), 0u);
  clear_record();
  on_another_thread([] { EXPECT_EQ(remove({7}), 0u); });
  EXPECT_THAT(
      calls({"ptd_set_mutex_block", "ptd_unset_mutex_block"}),
      ElementsAre("ptd_set_mutex_block(\"lum_delete_ports\", 625)", "ptd_unset_mutex_block()"));
  EXPECT_THAT(lock_failures(),
              ElementsAre(lum_api.complains("d", "module access lock failed with rc 125\n")));
  EXPECT_EQ(lock_elsewhere(first), ECANCELED);
}

TEST_F(deletion, second_deletion_from_the_same_thread_comes_back_with_35_and_lets_go_of_it) {
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_THAT(lock_failures(),
              ElementsAre(lum_api.complains("d", "module access lock failed with rc 35\n")));
  EXPECT_EQ(lock_elsewhere(first), 0);
}

TEST_F(deletion, port_listed_twice_comes_back_with_35) {
  EXPECT_EQ(remove({7, 7}), 0u);
  EXPECT_THAT(lock_failures(), SizeIs(1));
  im.answer_all();
  EXPECT_FALSE(exists(first));
}

TEST_F(deletion, two_answers_for_one_port_remove_it_once) {
  EXPECT_EQ(remove({7}), 0u);
  on_another_thread([] { EXPECT_EQ(remove({7}), 0u); });
  im.answer_all();
  EXPECT_FALSE(exists(first));
  EXPECT_THAT(traces().back(), error("incorrect first Ifh in delete done for 0x1001"));
  EXPECT_TRUE(exists(second));
}

TEST_F(deletion, waits_for_a_transfer_in_progress) {
  std::atomic<bool> reading{false}, go_on{false};
  modules.before_transfer = [&] {
    reading = true;
    while (!go_on) std::this_thread::yield();
  };
  polling.start_cycle();
  while (!reading) std::this_thread::yield();
  std::thread other([] { EXPECT_EQ(remove({7}), 0u); });
  wait_for_block("lum_delete_ports");
  EXPECT_EQ(im.batches.size(), 1u);
  EXPECT_EQ(lum::shared_load(data_at(first).is_dom_enabled), 0);
  EXPECT_EQ(lum::shared_load(data_at(first).transceiver_disabled), 1);
  go_on = true;
  other.join();
  EXPECT_EQ(im.batches.size(), 2u);
  polling.wait_asleep();
}

// ---- Whoever waits for it comes back ----

TEST_F(deletion, polling_passes_the_port_by) {
  EXPECT_EQ(remove({7}), 0u);
  clear_record();
  polling.run_cycle();
  EXPECT_THAT(traces(), Contains(lum_api.says("dddd",
                                              "DOM thread: DOM is disabled for rsip=0x30007, "
                                              "is_dom_enabled 0, module_fw_upg_in_prog 0, "
                                              "transceiver_disabled 1\n")));
  EXPECT_THAT(calls({"i2c_read_block"}), ElementsAre("i2c_read_block(3, 0, 8, 0, 0, 128)",
                                                     "i2c_read_block(3, 0, 8, 3, 128, 23)"));
}

TEST_F(deletion, polling_visit_that_waits_for_the_mutex_comes_back) {
  pthread_mutex_t &mutex = data_at(first).port_mutex;
  ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
  polling.start_cycle();
  wait_for_block("lum_dom_thread");
  std::thread other([] { EXPECT_EQ(remove({7}), 0u); });
  wait_for_block("lum_delete_ports");
  ASSERT_EQ(pthread_mutex_unlock(&mutex), 0);
  other.join();
  polling.wait_asleep();
  EXPECT_THAT(traces(),
              Contains(lum_api.says("d", "DOM thread: DOM is disabled-2for rsip=0x30007\n")));
  EXPECT_THAT(calls({"i2c_read_block"}), SizeIs(2));
}

TEST_F(deletion, provisioning_makes_no_transfer_and_comes_back) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  EXPECT_EQ(remove({7}), 0u);
  clear_record();
  on_another_thread([] { EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u); });
  EXPECT_THAT(traces(), lines_in_order({info("subport 0 changed bits: [0x40000] RSIP 0/3/0/7\n"),
                                        error("module access unlock failed with rc 1 \n")}));
  EXPECT_THAT(calls({"i2c_write_byte"}), IsEmpty());
  EXPECT_EQ(lock_elsewhere(first), ECANCELED);
}

TEST_F(deletion, provisioning_that_waits_for_the_mutex_comes_back) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  pthread_mutex_t &mutex = data_at(first).port_mutex;
  ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
  std::thread pass([] { EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u); });
  wait_for_block("lum_provision_port_cfg_data");
  std::thread other([] { EXPECT_EQ(remove({7}), 0u); });
  wait_for_block("lum_delete_ports");
  ASSERT_EQ(pthread_mutex_unlock(&mutex), 0);
  pass.join();
  other.join();
  EXPECT_THAT(calls({"i2c_write_byte"}), IsEmpty());
  EXPECT_EQ(im.batches.back().operation, 0x80000005u);
}

// Polls, provisions and deletes again; returns when all of it has come back.
void everybody_comes_by() {
  polling.run_cycles(2);
  on_another_thread([] { EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u); });
  const uint32_t port = 7;
  on_another_thread([&] { lum_delete_ports(0, 3, 0, 1, &port); });
}

TEST_F(deletion, refused_batch_leaves_nobody_stuck) {
  script.fail_first("im_req_by_name", 2, 31);
  EXPECT_EQ(remove({7}), 31u);
  everybody_comes_by();
  EXPECT_TRUE(exists(first));
  EXPECT_EQ(remove({7}), 0u);
  im.answer_all();
  EXPECT_FALSE(exists(first));
}

TEST_F(deletion, batch_that_is_never_answered_leaves_nobody_stuck) {
  EXPECT_EQ(remove({7, 8}), 0u);
  everybody_comes_by();
  everybody_comes_by();
  EXPECT_TRUE(exists(first));
  EXPECT_EQ(data_at(first).is_dom_enabled, 0);
}

TEST_F(deletion, waiter_of_a_port_that_goes_meanwhile_comes_back) {
  pthread_mutex_t &mutex = data_at(first).port_mutex;
  ASSERT_EQ(pthread_mutex_lock(&mutex), 0);
  polling.start_cycle();
  wait_for_block("lum_dom_thread");
  on_another_thread([] { lum_controller_delete_done(delete_request({0x1001, 0x1002})); });
  EXPECT_FALSE(exists(first));
  EXPECT_EQ(lum::node_keeper_counts().freed, 0u);
  ASSERT_EQ(pthread_mutex_unlock(&mutex), 0);
  polling.wait_asleep();
  polling.run_cycle();
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
  EXPECT_THAT(calls({"i2c_read_block"}), Not(Contains("i2c_read_block(3, 0, 7, 0, 0, 128)")));
}

// ---- Release and destruction ----

TEST_F(deletion, completion_that_releases_the_mutex_from_another_thread_traces_1) {
  EXPECT_EQ(remove({7}), 0u);
  im.answer_all();
  EXPECT_THAT(traces(),
              Contains(lum_pd_data.complains("d", "module access unlock failed with rc 1\n")));
  EXPECT_FALSE(exists(first));
}

TEST_F(deletion, completion_on_the_keeping_thread_releases_the_mutex) {
  EXPECT_EQ(remove({7}), 0u);
  imca_reply_info_type reply = {};
  im.batches.back().complete(&reply, im.batches.back().context);
  EXPECT_THAT(traces(), Not(Contains(an_error())));
  EXPECT_FALSE(exists(first));
}

TEST_F(deletion, kept_mutex_goes_with_its_nodes_memory) {
  const block_watch blocks;
  EXPECT_EQ(remove({7, 8}), 0u);
  im.answer_all();
  EXPECT_EQ(lum::node_keeper_counts().retired, 2u);
  EXPECT_EQ(lum::node_keeper_counts().freed, 2u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(deletion, port_can_be_created_again) {
  EXPECT_EQ(remove({7}), 0u);
  im.answer_all();
  const auto props = props_of({first});
  EXPECT_EQ(lum_create_ports(1, props.data()), 0u);
  im.answer_all();
  EXPECT_EQ(lock_elsewhere(first), 0);
  clear_record();
  polling.run_cycle();
  EXPECT_THAT(calls({"i2c_read_block"}), Contains("i2c_read_block(3, 0, 7, 0, 0, 128)"));
}

}  // namespace

}  // namespace port_deletion_test
