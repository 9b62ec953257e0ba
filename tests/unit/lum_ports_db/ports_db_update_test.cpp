// Ports database: giving a port its handle, step by step and failing.
#include <gmock/gmock.h>

#include <cerrno>

#include "ports_db_fixture.h"

namespace ports_db_update_test {

using namespace ports_db_fixture;
using namespace support;
using testing::ElementsAre;

namespace {

class ports_db_update : public ports_db {
 protected:
  void SetUp() override {
    ports_db::SetUp();
    watch(lum_platform.mutex, "db");
    ASSERT_EQ(add(rsip), 0u);
    clear_record();
  }
  // Handle 5 belongs to `rsip`, so that an update of the next port with it drops that one.
  void take_handle_5() {
    ASSERT_EQ(add(rsip + 1), 0u);
    ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
    clear_record();
  }
  // The search makes the first attempt at the mutex, the insertion the second.
  static cerrno update_that_cannot_lock(uint32_t handle) {
    script.fail("pthread_mutex_trylock", 2, EINVAL, &lum_platform.mutex);
    return lum_ports_db_update_entry(rsip, handle);
  }
  static void fail_unlock(unsigned nth) {
    script.fail("pthread_mutex_unlock", nth, EPERM, &lum_platform.mutex);
  }
};

const std::initializer_list<std::string_view> steps = {
    "wavl_running",       "wavl_search",           "wavl_insert_thread",
    "wavl_delete_thread", "pthread_mutex_trylock", "pthread_mutex_unlock"};

// ---- Order ----

TEST_F(ports_db_update, finds_stores_traces_and_inserts_under_the_mutex) {
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 0x500), 0u);
  EXPECT_THAT(story(steps),
              ElementsAre("wavl_running()", "pthread_mutex_trylock(db)", "wavl_search(0x30007, 0)",
                          "pthread_mutex_unlock(db)",
                          "LUM_INFO: insert into lum_port_db wavl tree port_handle 1280, 0x500\n",
                          "pthread_mutex_trylock(db)", "wavl_insert_thread(1, 0x500)",
                          "pthread_mutex_unlock(db)"));
}

TEST_F(ports_db_update, drops_and_traces_the_node_under_the_mutex) {
  take_handle_5();
  EXPECT_EQ(lum_ports_db_update_entry(rsip + 1, 5), 0u);
  EXPECT_THAT(story(steps),
              ElementsAre("wavl_running()", "pthread_mutex_trylock(db)", "wavl_search(0x30008, 0)",
                          "pthread_mutex_unlock(db)",
                          "LUM_INFO: insert into lum_port_db wavl tree port_handle 5, 0x5\n",
                          "pthread_mutex_trylock(db)", "wavl_insert_thread(1, 0x5)",
                          "wavl_delete_thread(0, 0x30008)",
                          "LUM_INFO: insert into lum_port_db wavl tree failed 1\n",
                          "pthread_mutex_unlock(db)"));
}

// ---- The port is not found ----

TEST_F(ports_db_update, of_an_unknown_rsip_prints_the_count_of_handles) {
  ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  clear_record();
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 14u);
  EXPECT_THAT(traces(), ElementsAre(info(212, "insert into lum_port_db wavl tree failed  -1\n")));
}

TEST_F(ports_db_update, whose_find_cannot_lock_returns_14_and_stores_nothing) {
  script.fail("pthread_mutex_trylock", 1, EINVAL, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 14u);
  EXPECT_THAT(traces(), ElementsAre(error(218, "ports DB mutex lock failed, errno: 22\n"),
                                    info(212, "insert into lum_port_db wavl tree failed  0\n")));
  EXPECT_EQ(node_at(rsip).port_handle, 0u);
}

TEST_F(ports_db_update, whose_find_cannot_unlock_returns_14_and_tries_no_second_time) {
  fail_unlock(1);
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 14u);
  EXPECT_THAT(traces(), ElementsAre(info(212, "insert into lum_port_db wavl tree failed  0\n")));
  EXPECT_THAT(calls({"pthread_mutex_trylock", "wavl_insert_thread"}),
              ElementsAre("pthread_mutex_trylock(db)"));
}

// ---- The node is dropped ----

TEST_F(ports_db_update, that_drops_the_node_and_cannot_unlock_returns_the_unlocks_code) {
  take_handle_5();
  fail_unlock(2);
  EXPECT_EQ(lum_ports_db_update_entry(rsip + 1, 5), 1u);
  EXPECT_THAT(traces(),
              ElementsAre(info(213, "insert into lum_port_db wavl tree port_handle 5, 0x5\n"),
                          info(215, "insert into lum_port_db wavl tree failed 1\n"),
                          error(216, "ports DB mutex unlock failed, errno: 1\n")));
}

TEST_F(ports_db_update, keeps_a_node_that_the_tree_does_not_let_go) {
  take_handle_5();
  const lum_port_node_info *node = lum_ports_db_find_entry(rsip + 1);
  clear_record();
  script.fail("wavl_delete_thread", 1, 1);
  EXPECT_EQ(lum_ports_db_update_entry(rsip + 1, 5), 0u);
  EXPECT_THAT(traces(),
              ElementsAre(info(213, "insert into lum_port_db wavl tree port_handle 5, 0x5\n"),
                          info(215, "insert into lum_port_db wavl tree failed 1\n")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 1), node);
  EXPECT_EQ(lum::node_keeper_counts().retired, 0u);
}

TEST_F(ports_db_update, of_a_node_that_has_its_handle_is_traced_and_leaves_the_counts) {
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
  clear_record();
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 6), 0u);
  EXPECT_THAT(traces(),
              ElementsAre(info(213, "insert into lum_port_db wavl tree port_handle 6, 0x6\n"),
                          info(215, "insert into lum_port_db wavl tree failed 1\n")));
  EXPECT_EQ(lum_platform.rsip_count, 1u);
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
  EXPECT_EQ(lum_num_ots_ctrls(), 2u);
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
}

// ---- The mutex is not to be had ----

TEST_F(ports_db_update, that_cannot_lock_may_be_made_again) {
  EXPECT_EQ(update_that_cannot_lock(5), 22u);
  EXPECT_EQ(update_that_cannot_lock(6), 22u);
  EXPECT_EQ(node_at(rsip).port_handle, 6u);
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 7), 0u);
  EXPECT_EQ(lum_get_port_node_from_port_handle(7), &node_at(rsip));
  EXPECT_EQ(lum_get_port_node_from_port_handle(5), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(6), nullptr);
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
}

}  // namespace

}  // namespace ports_db_update_test
