// Ports database: additions and removals that fail, more than once even.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "base/locks.h"
#include "blocks.h"
#include "ports_db_fixture.h"

namespace ports_db_failures_test {

using namespace ports_db_fixture;
using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

const std::initializer_list<std::string_view> locks = {
    "pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock", "ptd_set_mutex_block",
    "ptd_unset_mutex_block"};

class ports_db_failures : public ports_db {
 protected:
  void SetUp() override {
    ports_db::SetUp();
    watch(lum_platform.mutex, "db");
  }
  void add_with_handle(uint32_t at, uint32_t handle) {
    ASSERT_EQ(add(at), 0u);
    ASSERT_EQ(lum_ports_db_update_entry(at, handle), 0u);
    clear_record();
  }
};

// From here on the nth attempt to take the database mutex, or to release it, fails. A mutex whose
// release failed stays taken, so that nothing can be found any more.
void fail_trylock(unsigned nth, int code) {
  script.fail("pthread_mutex_trylock", nth, static_cast<cerrno>(code), &lum_platform.mutex);
}
void fail_unlock(unsigned nth) {
  script.fail("pthread_mutex_unlock", nth, EPERM, &lum_platform.mutex);
}

// ---- Add ----

TEST_F(ports_db_failures, node_that_the_tree_refuses_is_freed) {
  ASSERT_EQ(add(rsip), 0u);
  const block_watch blocks;
  EXPECT_EQ(add(rsip), 14u);
  EXPECT_EQ(blocks.taken(), 1u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ports_db_failures, node_for_which_the_mutex_was_not_to_be_had_is_freed) {
  const block_watch blocks;
  fail_trylock(1, EINVAL);
  EXPECT_EQ(add(rsip), 22u);
  EXPECT_EQ(blocks.taken(), 1u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ports_db_failures, add_that_the_tree_refuses_and_cannot_unlock_returns_the_unlocks_code) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  fail_unlock(1);
  EXPECT_EQ(add(rsip), 1u);
  EXPECT_THAT(traces(), ElementsAre(info(208, "insert into lum_port_db wavl tree rsip: 0x30007\n"),
                                    info(210, "insert into lum_port_db wavl tree failed cur 1\n"),
                                    error(211, "mutex unlock failure, errno: 1\n")));
  EXPECT_EQ(lum_platform.rsip_count, 1u);
}

TEST_F(ports_db_failures, add_whose_wait_for_the_mutex_fails_returns_the_locks_code) {
  fail_trylock(1, EBUSY);
  script.fail("pthread_mutex_lock", 1, EDEADLK, &lum_platform.mutex);
  EXPECT_EQ(add(rsip), 35u);
  const auto made = calls(locks);
  ASSERT_EQ(made.size(), 5u);
  EXPECT_EQ(made[0], "pthread_mutex_trylock(db)");
  EXPECT_THAT(made[1], MatchesRegex("ptd_set_mutex_block\\(\"lum_ports_db_add_entry\", [0-9]+\\)"));
  EXPECT_EQ(made[2], "pthread_mutex_lock(db)");
  EXPECT_EQ(made[3], "ptd_unset_mutex_block()");
  EXPECT_EQ(made[4], "pthread_mutex_unlock(db)");
  EXPECT_THAT(traces(), Contains(error(209, "mutex lock failure, errno: 35\n")));
  EXPECT_EQ(lum_platform.rsip_count, 0u);
  EXPECT_EQ(lum_num_ots_ctrls(), 0u);
}

// ---- Waiting for the mutex ----

struct waiting_case {
  const char *function;
  unsigned busy;  // the attempt that finds the mutex taken
  std::function<cerrno()> call;
};
void PrintTo(const waiting_case &each, std::ostream *out) { *out << each.function; }

class ports_db_waits : public ports_db_failures,
                       public testing::WithParamInterface<waiting_case> {};

TEST_P(ports_db_waits, are_marked_with_the_functions_name_and_end_well) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  fail_trylock(GetParam().busy, EBUSY);
  EXPECT_EQ(GetParam().call(), 0u);
  const auto marks = calls({"ptd_set_mutex_block", "pthread_mutex_lock", "ptd_unset_mutex_block"});
  ASSERT_EQ(marks.size(), 3u);
  EXPECT_THAT(marks[0], MatchesRegex("ptd_set_mutex_block\\(\"" + std::string(GetParam().function) +
                                     "\", [0-9]+\\)"));
  EXPECT_EQ(marks[1], "pthread_mutex_lock(db)");
  EXPECT_EQ(marks[2], "ptd_unset_mutex_block()");
}

INSTANTIATE_TEST_SUITE_P(
    each_function, ports_db_waits,
    testing::Values(waiting_case{"lum_ports_db_find_entry", 1,
                                 [] { return lum_ports_db_find_entry(rsip) == nullptr ? 1u : 0u; }},
                    waiting_case{"lum_ports_db_update_entry", 2,
                                 [] { return lum_ports_db_update_entry(rsip, 5); }},
                    waiting_case{"lum_ports_db_remove_entry", 2,
                                 [] { return lum_ports_db_remove_entry(rsip); }}));

// ---- Remove ----

TEST_F(ports_db_failures, remove_whose_find_cannot_lock_returns_2_with_the_finds_trace_only) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  fail_trylock(1, EINVAL);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 2u);
  EXPECT_THAT(traces(), ElementsAre(error(218, "ports DB mutex lock failed, errno: 22\n")));
  EXPECT_THAT(calls({"wavl_delete"}), IsEmpty());
}

TEST_F(ports_db_failures, remove_whose_find_cannot_unlock_returns_2_without_a_trace) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  fail_unlock(1);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 2u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls({"wavl_delete"}), IsEmpty());
}

TEST_F(ports_db_failures, remove_that_cannot_lock_unlocks_anyway_and_leaves_the_counts) {
  add_with_handle(rsip, 5);
  fail_trylock(2, EINVAL);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 22u);
  EXPECT_THAT(calls(locks), ElementsAre("pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)",
                                        "pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)"));
  EXPECT_EQ(lum_platform.rsip_count, 1u);
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
  EXPECT_EQ(lum_num_ots_ctrls(), 2u);
}

TEST_F(ports_db_failures, remove_that_the_tree_refuses_leaves_the_handles_count) {
  add_with_handle(rsip, 5);
  script.fail("wavl_delete", 1, 1);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 14u);
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
  EXPECT_EQ(lum::node_keeper_counts().retired, 0u);
}

TEST_F(ports_db_failures, remove_that_the_tree_refuses_and_cannot_unlock_returns_the_unlocks_code) {
  add_with_handle(rsip, 5);
  script.fail("wavl_delete", 1, 1);
  fail_unlock(2);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 1u);
  EXPECT_THAT(traces(), ElementsAre(error(222, "ports DB delete err, rsip 0x30007\n"),
                                    error(223, "ports DB mutex unlock failed, errno: 1\n")));
}

TEST_F(ports_db_failures, remove_that_cannot_unlock_has_removed_and_freed_the_node) {
  add_with_handle(rsip, 5);
  fail_unlock(2);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 1u);
  EXPECT_EQ(lum_platform.rsip_count, 0u);
  EXPECT_EQ(lum_platform.port_handle_count, 0u);
  EXPECT_EQ(lum_num_ots_ctrls(), 0u);
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
}

// ---- The node's own mutex ----

TEST_F(ports_db_failures, remove_does_not_touch_the_nodes_own_mutex) {
  add_with_handle(rsip, 5);
  watch(node_at(rsip).data.port_mutex, "port");
  clear_record();
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_THAT(calls(locks), ElementsAre("pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)",
                                        "pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)"));
}

TEST_F(ports_db_failures, new_nodes_mutex_is_free_whatever_the_template_says) {
  auto data = std::make_unique<lum_port_data>();
  std::memset(&data->port_mutex, 0x5C, sizeof data->port_mutex);
  data->mutex_kept_by = 0x1234;
  ASSERT_EQ(lum_ports_db_add_entry(rsip, data.get()), 0u);
  lum_port_data &port = data_at(rsip);
  EXPECT_EQ(port.mutex_kept_by, 0u);
  int error = -1;
  std::thread([&] { error = lum::port_hold(port, {"test", 1}).error(); }).join();
  EXPECT_EQ(error, 0);
}

}  // namespace

}  // namespace ports_db_failures_test
