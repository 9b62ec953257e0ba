// Serialised port queries and their lock.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "library.h"
#include "lum_api/lum_api.h"

namespace safe_queries_test {

using namespace support;
using testing::ElementsAre;

namespace {

constexpr uint32_t rsip = 0x30007;
constexpr uint32_t handle = handle_for(rsip);

class safe_queries : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_port(rsip);
    ASSERT_EQ(lum_update_ifhandle("Ots0_3_0_7_1", 0x1001), 0u);
    watch(lum::serial_mutex, "serial");
    watch(lum_platform.mutex, "db");
    clear_record();
  }
  // The serial lock is taken once and released once, around everything else.
  static void expect_bracketed() {
    const auto made = calls();
    ASSERT_GE(made.size(), 2u);
    EXPECT_EQ(made.front(), "pthread_mutex_trylock(serial)");
    EXPECT_EQ(made.back(), "pthread_mutex_unlock(serial)");
    EXPECT_EQ(std::count(made.begin(), made.end(), "pthread_mutex_trylock(serial)"), 1);
    EXPECT_EQ(std::count(made.begin(), made.end(), "pthread_mutex_unlock(serial)"), 1);
    clear_record();
  }
};

TEST_F(safe_queries, port_info_hands_out_the_data_block) {
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_safely_get_port_info("Ots0_3_0_7_0", &out), 0u);
  expect_bracketed();
  EXPECT_EQ(out, &data_at(rsip));
}

TEST_F(safe_queries, port_info_of_a_name_that_does_not_parse_is_the_parsers_error) {
  script.fail("imc_ifname_parse", 1, 93);
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_safely_get_port_info("Ots0_3_0_7_0", &out), 93u);
  expect_bracketed();
  EXPECT_EQ(lum_safely_get_port_info("nonsense", &out), 22u);
  expect_bracketed();
}

TEST_F(safe_queries, port_info_of_a_well_formed_name_of_an_unknown_port_is_22) {
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_safely_get_port_info("Ots0_9_0_9_0", &out), 22u);
  expect_bracketed();
  EXPECT_EQ(out, nullptr);
}

TEST_F(safe_queries, ifhandle_of_a_created_interface) {
  uint32_t out = 0;
  EXPECT_EQ(lum_safely_get_ifhandle(handle, 1, &out), 0u);
  expect_bracketed();
  EXPECT_EQ(out, 0x1001u);
}

TEST_F(safe_queries, ifhandle_of_an_interface_not_created_yet_is_0_with_result_0) {
  uint32_t out = 7;
  EXPECT_EQ(lum_safely_get_ifhandle(handle, 0, &out), 0u);
  EXPECT_EQ(out, 0u);
}

TEST_F(safe_queries, ifhandle_is_taken_whatever_the_valid_mask_says) {
  data_at(rsip).device_id[1].valid = 0;
  uint32_t out = 7;
  EXPECT_EQ(lum_safely_get_ifhandle(handle, 1, &out), 0u);
  EXPECT_EQ(out, 0x1001u);
}

TEST_F(safe_queries, ifhandle_of_an_unknown_port_handle_is_22_and_leaves_the_output) {
  uint32_t out = 7;
  EXPECT_EQ(lum_safely_get_ifhandle(9, 0, &out), 22u);
  expect_bracketed();
  EXPECT_EQ(out, 7u);
}

TEST_F(safe_queries, devinfo_copies_the_record) {
  lum_device_id_td out;
  std::memset(&out, 0xEE, sizeof out);
  EXPECT_EQ(lum_safely_get_devinfo(handle, 1, &out), 0u);
  expect_bracketed();
  EXPECT_EQ(out.valid, 0xFu);
  EXPECT_EQ(out.port_handle, handle);
  EXPECT_EQ(out.iftype, 188u);
  EXPECT_EQ(out.ifhandle, 0x1001u);
  EXPECT_STREQ(out.ifname, "Ots0_3_0_7_1");
}

TEST_F(safe_queries, devinfo_of_an_unknown_port_handle_is_22_and_clears_the_output) {
  lum_device_id_td out;
  std::memset(&out, 0xEE, sizeof out);
  EXPECT_EQ(lum_safely_get_devinfo(9, 1, &out), 22u);
  expect_bracketed();
  const lum_device_id_td zero = {};
  EXPECT_EQ(out.valid, 0u);
  EXPECT_EQ(out.port_handle, 0u);
  EXPECT_EQ(out.iftype, 0u);
  EXPECT_EQ(out.ifhandle, 0u);
  EXPECT_EQ(std::memcmp(out.ifname, zero.ifname, sizeof out.ifname), 0);
}

TEST_F(safe_queries, rsip_of_a_port_handle) {
  uint32_t out = 7;
  EXPECT_EQ(lum_safely_get_rsip(handle, &out), 0u);
  expect_bracketed();
  EXPECT_EQ(out, rsip);
}

TEST_F(safe_queries, rsip_of_an_unknown_port_handle_is_not_found_and_leaves_the_output) {
  uint32_t out = 7;
  EXPECT_EQ(lum_safely_get_rsip(9, &out), 0xFFFFFFFFu);
  expect_bracketed();
  EXPECT_EQ(out, 7u);
}

TEST_F(safe_queries, look_ups_by_handle_take_no_other_lock) {
  uint32_t out = 0;
  lum_device_id_td record;
  const auto expect_no_other = [] {
    EXPECT_THAT(calls({"pthread_mutex_trylock"}), ElementsAre("pthread_mutex_trylock(serial)"));
    expect_bracketed();
  };
  lum_safely_get_ifhandle(handle, 0, &out);
  expect_no_other();
  lum_safely_get_devinfo(handle, 0, &record);
  expect_no_other();
  lum_safely_get_rsip(handle, &out);
  expect_no_other();
}

TEST_F(safe_queries, sub_port_that_no_port_has_is_answered_without_touching_memory) {
  uint32_t out = 7;
  lum_device_id_td record;
  EXPECT_EQ(lum_safely_get_ifhandle(handle, 2, &out), 22u);
  expect_bracketed();
  EXPECT_EQ(lum_safely_get_ifhandle(handle, 0xFFFFFFFF, &out), 22u);
  expect_bracketed();
  EXPECT_EQ(out, 7u);
  EXPECT_EQ(lum_safely_get_devinfo(handle, 2, &record), 22u);
  expect_bracketed();
  EXPECT_EQ(record.valid, 0u);
}

TEST_F(safe_queries, waiting_for_the_lock_is_marked) {
  script.fail("pthread_mutex_trylock", 1, EBUSY, &lum::serial_mutex);
  uint32_t out = 0;
  EXPECT_EQ(lum_safely_get_rsip(handle, &out), 0u);
  EXPECT_THAT(
      calls(),
      ElementsAre("pthread_mutex_trylock(serial)", "ptd_set_mutex_block(\"lum_serial_lock\", 799)",
                  "pthread_mutex_lock(serial)", "ptd_unset_mutex_block()", "wavl_running()",
                  "wavl_search(" + shown(hex{handle}) + ", 1)", "pthread_mutex_unlock(serial)"));
}

// ---- Under a lock that fails ----

TEST_F(safe_queries, query_under_the_callers_own_lock_is_reported_and_still_answers) {
  lum_serial_lock(1, "caller");
  uint32_t out = 0;
  clear_record();
  EXPECT_EQ(lum_safely_get_rsip(handle, &out), 0u);
  EXPECT_EQ(out, rsip);
  EXPECT_THAT(traces(),
              ElementsAre(error(46, "serial lock failed with rc 35 for lum_safely_get_rsip\n"),
                          info(47, "serial unlock failed with rc 1 for lum_safely_get_rsip\n")));
  clear_record();
  lum_serial_unlock(1, "caller");
  EXPECT_THAT(traces(), ElementsAre(info(47, "serial unlock failed with rc 1 for caller\n")))
      << "the query has let go of the caller's lock";
}

TEST_F(safe_queries, each_query_names_itself_to_the_lock) {
  script.fail_always("pthread_mutex_trylock", EINVAL, &lum::serial_mutex);
  uint32_t word = 0;
  lum_port_data *data = nullptr;
  lum_device_id_td record;
  lum_safely_get_port_info("Ots0_3_0_7_0", &data);
  lum_safely_get_ifhandle(handle, 0, &word);
  lum_safely_get_devinfo(handle, 0, &record);
  lum_safely_get_rsip(handle, &word);
  EXPECT_THAT(traces(),
              ElementsAre(error(46, "serial lock failed with rc 22 for lum_safely_get_port_info\n"),
                          info(47, "serial unlock failed with rc 1 for lum_safely_get_port_info\n"),
                          error(46, "serial lock failed with rc 22 for lum_safely_get_ifhandle\n"),
                          info(47, "serial unlock failed with rc 1 for lum_safely_get_ifhandle\n"),
                          error(46, "serial lock failed with rc 22 for lum_safely_get_devinfo\n"),
                          info(47, "serial unlock failed with rc 1 for lum_safely_get_devinfo\n"),
                          error(46, "serial lock failed with rc 22 for lum_safely_get_rsip\n"),
                          info(47, "serial unlock failed with rc 1 for lum_safely_get_rsip\n")));
}

TEST_F(safe_queries, answers_stay_whole_while_ports_come_and_go) {
  std::atomic<bool> done{false};
  std::atomic<unsigned> found{0};
  std::vector<std::thread> clients;
  for (int i = 0; i < 2; ++i) {
    clients.emplace_back([&] {
      while (!done.load()) {
        uint32_t out = 0;
        if (lum_safely_get_rsip(handle + 1, &out) == 0) {
          EXPECT_EQ(out, rsip + 1);
          ++found;
        }
        lum_device_id_td record;
        lum_safely_get_devinfo(handle + 1, 0, &record);
      }
    });
  }
  for (int round = 0; round < 100 || (found == 0 && round < 10000); ++round) {
    add_port(rsip + 1);
    lum_ports_db_remove_entry(rsip + 1);
    if (round % 20 == 0) clear_record();
  }
  done.store(true);
  for (std::thread &each : clients) each.join();
  EXPECT_GT(found, 0u);
}

}  // namespace

}  // namespace safe_queries_test
