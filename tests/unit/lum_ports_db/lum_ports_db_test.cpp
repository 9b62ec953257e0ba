// Ports database: adding, handles, finding, removing.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ports_db_fixture.h"
#include "tree_comparators.h"

namespace lum_ports_db_test {

using namespace ports_db_fixture;
using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

// ---- Set-up ----

TEST(ports_db_init, sets_up_two_indices_over_the_nodes_links) {
  open_traces();
  EXPECT_EQ(lum_ports_db_init(), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_init(2, 0)"));
}

TEST(ports_db_init, returns_the_trees_code) {
  script.fail("wavl_init", 1, 31);
  EXPECT_EQ(lum_ports_db_init(), 31u);
}

TEST(ports_db_before_init, add_returns_11_and_both_finds_return_null) {
  open_traces();
  const auto data = std::make_unique<lum_port_data>();
  EXPECT_EQ(lum_ports_db_add_entry(rsip, data.get()), 11u);
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_get_port_node_from_rsip(rsip), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(1), nullptr);
  EXPECT_THAT(traces(), ElementsAre(error("wavl is not running\n").of("lum_ports_db"),
                                    error("wavl is not running\n"), error("wavl is not running\n"),
                                    error("wavl is not running\n")));
  EXPECT_THAT(calls({"wavl_insert_thread", "wavl_search"}), IsEmpty());
}

// ---- Comparators ----

class comparators : public ports_db, public testing::WithParamInterface<unsigned> {
 protected:
  int compare(const void *first, const void *second) {
    return tree_comparators[GetParam()](first, second);
  }
  static lum_port_node_info *with_key(uint32_t key) {
    static lum_port_node_info nodes[2];
    static unsigned next = 0;
    lum_port_node_info &node = nodes[next++ % 2];
    node.rsip = GetParam() == 0 ? key : 0;
    node.port_handle = GetParam() == 1 ? key : 0;
    return &node;
  }
};

TEST_P(comparators, smaller_is_0_equal_1_greater_2) {
  EXPECT_EQ(compare(with_key(1), with_key(2)), 0);
  EXPECT_EQ(compare(with_key(2), with_key(2)), 1);
  EXPECT_EQ(compare(with_key(2), with_key(1)), 2);
}

TEST_P(comparators, keys_are_unsigned) {
  EXPECT_EQ(compare(with_key(0x7FFFFFFF), with_key(0x80000000)), 0);
  EXPECT_EQ(compare(with_key(0xFFFFFFFF), with_key(0)), 2);
}

TEST_P(comparators, null_node_sorts_before_any_node) {
  EXPECT_EQ(compare(nullptr, nullptr), 1);
  EXPECT_EQ(compare(nullptr, with_key(0)), 0);
  EXPECT_EQ(compare(with_key(0), nullptr), 2);
}

INSTANTIATE_TEST_SUITE_P(each_index, comparators, testing::Values(0u, 1u));

TEST_F(ports_db, keys_are_compared_unsigned) {
  for (const uint32_t key : {0x80000000u, 0xFFFFFFFFu, 0u, 0x7FFFFFFFu, 1u})
    ASSERT_EQ(add(key), 0u);
  std::vector<uint32_t> order;
  for (const lum_port_node_info &node : lum::all_ports()) order.push_back(node.rsip);
  EXPECT_THAT(order, ElementsAre(0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu));
}

TEST_F(ports_db, handles_are_compared_unsigned) {
  for (const uint32_t at : {1u, 2u, 3u}) ASSERT_EQ(add(at), 0u);
  lum_ports_db_update_entry(1, 0x80000000);
  lum_ports_db_update_entry(2, 5);
  lum_ports_db_update_entry(3, 0xFFFFFFFF);
  std::vector<uint32_t> order;
  for (void *node = wavl_get_first(&lum_platform.tree, 1); node != nullptr;
       node = wavl_get_next(&lum_platform.tree, node, 1)) {
    order.push_back(static_cast<lum_port_node_info *>(node)->port_handle);
  }
  EXPECT_THAT(order, ElementsAre(5u, 0x80000000u, 0xFFFFFFFFu));
}

// ---- Add ----

TEST_F(ports_db, add_inserts_a_copy_of_the_template_into_index_0_only) {
  watch(lum_platform.mutex, "db");
  auto data = std::make_unique<lum_port_data>();
  std::memset(static_cast<void *>(data.get()), 0x5C, sizeof *data);
  EXPECT_EQ(lum_ports_db_add_entry(rsip, data.get()), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_running()", "pthread_mutex_trylock(db)",
                                   "wavl_insert_thread(0, 0x30007)", "pthread_mutex_unlock(db)"));
  EXPECT_THAT(
      traces(),
      ElementsAre(info("insert into lum_port_db wavl tree rsip: 0x30007\n").of("lum_ports_db")));
  const lum_port_node_info &node = node_at(rsip);
  EXPECT_EQ(node.rsip, rsip);
  EXPECT_EQ(node.port_handle, 0u);
  // The mutex behind the rest is the node's own.
  EXPECT_EQ(std::memcmp(&node.data, data.get(), offsetof(lum_port_data, port_mutex)), 0);
  EXPECT_EQ(lum_platform.rsip_count, 1u);
  EXPECT_EQ(lum_platform.port_handle_count, 0u);
  EXPECT_EQ(lum_num_ots_ctrls(), 2u);
}

TEST_F(ports_db, add_of_the_same_rsip_twice_returns_14_and_leaves_the_counts) {
  ASSERT_EQ(add(rsip), 0u);
  const lum_port_node_info *first = lum_ports_db_find_entry(rsip);
  clear_record();
  EXPECT_EQ(add(rsip), 14u);
  EXPECT_THAT(traces(), ElementsAre(info("insert into lum_port_db wavl tree rsip: 0x30007\n"),
                                    info("insert into lum_port_db wavl tree failed cur 1\n")));
  EXPECT_EQ(lum_platform.rsip_count, 1u);
  EXPECT_EQ(lum_num_ots_ctrls(), 2u);
  EXPECT_EQ(lum_ports_db_find_entry(rsip), first);
}

TEST_F(ports_db, add_without_memory_returns_12) {
  script.fail("calloc", 1, 1);
  EXPECT_EQ(add(rsip), 12u);
  EXPECT_THAT(traces(), ElementsAre(error("calloc failure\n").of("lum_ports_db")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
}

TEST_F(ports_db, add_that_cannot_lock_unlocks_anyway_and_returns_the_locks_code) {
  watch(lum_platform.mutex, "db");
  script.fail("pthread_mutex_trylock", 1, EINVAL, &lum_platform.mutex);
  EXPECT_EQ(add(rsip), 22u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock",
                     "wavl_insert_thread"}),
              ElementsAre("pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)"));
  EXPECT_THAT(traces(), Contains(error("mutex lock failure, errno: 22\n").of("lum_ports_db")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_platform.rsip_count, 0u);
  EXPECT_EQ(lum_num_ots_ctrls(), 0u);
}

TEST_F(ports_db, add_that_cannot_unlock_returns_the_unlocks_code_with_the_node_added) {
  script.fail("pthread_mutex_unlock", 1, EPERM, &lum_platform.mutex);
  EXPECT_EQ(add(rsip), 1u);
  EXPECT_THAT(traces(), Contains(error("mutex unlock failure, errno: 1\n").of("lum_ports_db")));
  EXPECT_EQ(lum_platform.rsip_count, 1u);
  EXPECT_EQ(lum_num_ots_ctrls(), 2u);
}

TEST_F(ports_db, waiting_for_the_mutex_is_marked) {
  watch(lum_platform.mutex, "db");
  script.fail("pthread_mutex_trylock", 1, EBUSY, &lum_platform.mutex);
  EXPECT_EQ(add(rsip), 0u);
  const auto made = calls({"pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock",
                           "ptd_set_mutex_block", "ptd_unset_mutex_block"});
  ASSERT_EQ(made.size(), 5u);
  EXPECT_EQ(made[0], "pthread_mutex_trylock(db)");
  EXPECT_THAT(made[1], MatchesRegex("ptd_set_mutex_block\\(\"lum_ports_db_add_entry\", [0-9]+\\)"));
  EXPECT_EQ(made[2], "pthread_mutex_lock(db)");
  EXPECT_EQ(made[3], "ptd_unset_mutex_block()");
  EXPECT_EQ(made[4], "pthread_mutex_unlock(db)");
}

TEST_F(ports_db, mutex_is_a_zero_filled_default_one) {
  const pthread_mutex_t zero = {};
  EXPECT_EQ(std::memcmp(&lum_platform.mutex, &zero, sizeof zero), 0);
}

// ---- Setting the handle ----

TEST_F(ports_db, update_enters_the_handle_into_index_1) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 0x500), 0u);
  EXPECT_THAT(calls({"wavl_search", "wavl_insert_thread", "wavl_delete_thread"}),
              ElementsAre("wavl_search(0x30007, 0)", "wavl_insert_thread(1, 0x500)"));
  EXPECT_THAT(
      traces(),
      ElementsAre(
          info("insert into lum_port_db wavl tree port_handle 1280, 0x500\n").of("lum_ports_db")));
  EXPECT_EQ(node_at(rsip).port_handle, 0x500u);
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
  EXPECT_EQ(lum_get_port_node_from_port_handle(0x500), &node_at(rsip));
}

TEST_F(ports_db, update_of_an_unknown_rsip_returns_14) {
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 14u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info("insert into lum_port_db wavl tree failed  0\n").of("lum_ports_db")));
}

TEST_F(ports_db, update_with_a_handle_in_use_drops_the_node_and_returns_0) {
  ASSERT_EQ(add(rsip), 0u);
  ASSERT_EQ(add(rsip + 1), 0u);
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
  const auto freed_before = lum::node_keeper_counts().freed;
  clear_record();
  EXPECT_EQ(lum_ports_db_update_entry(rsip + 1, 5), 0u);
  EXPECT_THAT(calls({"wavl_insert_thread", "wavl_delete_thread"}),
              ElementsAre("wavl_insert_thread(1, 0x5)", "wavl_delete_thread(0, 0x30008)"));
  EXPECT_THAT(traces(), ElementsAre(info("insert into lum_port_db wavl tree port_handle 5, 0x5\n"),
                                    info("insert into lum_port_db wavl tree failed 1\n")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(5), &node_at(rsip));
  EXPECT_EQ(lum::node_keeper_counts().freed, freed_before + 1);
}

TEST_F(ports_db, update_that_drops_the_node_leaves_the_counts) {
  ASSERT_EQ(add(rsip), 0u);
  ASSERT_EQ(add(rsip + 1), 0u);
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
  EXPECT_EQ(lum_ports_db_update_entry(rsip + 1, 5), 0u);
  EXPECT_EQ(lum_platform.rsip_count, 2u);
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
  EXPECT_EQ(lum_num_ots_ctrls(), 4u);
}

TEST_F(ports_db, second_update_of_a_node_drops_it) {
  ASSERT_EQ(add(rsip), 0u);
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 6), 0u);
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(5), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(6), nullptr);
}

TEST_F(ports_db, update_that_cannot_lock_has_stored_the_handle_and_leaves_the_node_linked) {
  ASSERT_EQ(add(rsip), 0u);
  watch(lum_platform.mutex, "db");
  clear_record();
  // The first attempt is that of the search.
  script.fail("pthread_mutex_trylock", 2, EINVAL, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 22u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_unlock", "wavl_insert_thread"}),
              ElementsAre("pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)",
                          "pthread_mutex_trylock(db)", "pthread_mutex_unlock(db)"));
  EXPECT_THAT(traces(), ElementsAre(info("insert into lum_port_db wavl tree port_handle 5, 0x5\n"),
                                    error("ports DB mutex lock failed, errno: 22\n")));
  EXPECT_EQ(node_at(rsip).port_handle, 5u);
  EXPECT_EQ(lum_get_port_node_from_port_handle(5), nullptr);
  EXPECT_EQ(lum_platform.port_handle_count, 0u);
}

TEST_F(ports_db, no_look_up_reaches_freed_memory_after_an_update_that_could_not_lock) {
  ASSERT_EQ(add(rsip), 0u);
  script.fail("pthread_mutex_trylock", 2, EINVAL, &lum_platform.mutex);
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 22u);
  EXPECT_EQ(node_at(rsip).data.port, 7u);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
}

TEST_F(ports_db, update_that_cannot_unlock_returns_the_unlocks_code) {
  ASSERT_EQ(add(rsip), 0u);
  script.fail("pthread_mutex_unlock", 2, EPERM, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 1u);
  EXPECT_THAT(traces(), Contains(error("ports DB mutex unlock failed, errno: 1\n")));
  EXPECT_EQ(lum_platform.port_handle_count, 1u);
}

// ---- Finding ----

TEST_F(ports_db, find_by_rsip_searches_index_0_under_the_mutex) {
  ASSERT_EQ(add(rsip), 0u);
  watch(lum_platform.mutex, "db");
  clear_record();
  ASSERT_NE(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_THAT(calls(), ElementsAre("wavl_running()", "pthread_mutex_trylock(db)",
                                   "wavl_search(0x30007, 0)", "pthread_mutex_unlock(db)"));
  EXPECT_EQ(lum_get_port_node_from_rsip(rsip), lum_ports_db_find_entry(rsip));
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ports_db, find_by_rsip_that_cannot_lock_unlocks_and_returns_null) {
  ASSERT_EQ(add(rsip), 0u);
  watch(lum_platform.mutex, "db");
  clear_record();
  script.fail("pthread_mutex_trylock", 1, EINVAL, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_THAT(calls(), ElementsAre("wavl_running()", "pthread_mutex_trylock(db)",
                                   "pthread_mutex_unlock(db)"));
  EXPECT_THAT(traces(),
              ElementsAre(error("ports DB mutex lock failed, errno: 22\n").of("lum_ports_db")));
}

TEST_F(ports_db, find_by_rsip_that_cannot_unlock_returns_null_without_a_trace) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  script.fail("pthread_mutex_unlock", 1, EPERM, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ports_db, find_by_handle_searches_index_1_without_the_mutex) {
  ASSERT_EQ(add(rsip), 0u);
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
  watch(lum_platform.mutex, "db");
  clear_record();
  EXPECT_NE(lum_get_port_node_from_port_handle(5), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(6), nullptr);
  EXPECT_THAT(calls(), ElementsAre("wavl_running()", "wavl_search(0x5, 1)", "wavl_running()",
                                   "wavl_search(0x6, 1)"));
}

// ---- Removing ----

TEST_F(ports_db, remove_takes_the_node_out_of_both_indices) {
  ASSERT_EQ(add(rsip), 0u);
  ASSERT_EQ(lum_ports_db_update_entry(rsip, 5), 0u);
  watch(lum_platform.mutex, "db");
  clear_record();
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_THAT(calls(),
              ElementsAre("wavl_running()", "pthread_mutex_trylock(db)", "wavl_search(0x30007, 0)",
                          "pthread_mutex_unlock(db)", "pthread_mutex_trylock(db)",
                          "wavl_delete(0x30007)", "pthread_mutex_unlock(db)"));
  EXPECT_THAT(traces(),
              ElementsAre(info("ports DB delete done, rsip 0x30007\n").of("lum_ports_db")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_get_port_node_from_port_handle(5), nullptr);
  EXPECT_EQ(lum_platform.rsip_count, 0u);
  EXPECT_EQ(lum_platform.port_handle_count, 0u);
  EXPECT_EQ(lum_num_ots_ctrls(), 0u);
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
}

TEST_F(ports_db, remove_of_an_unknown_rsip_returns_2_without_a_trace) {
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 2u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(ports_db, remove_of_a_node_without_a_handle_wraps_the_count) {
  ASSERT_EQ(add(rsip), 0u);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_EQ(lum_platform.port_handle_count, 0xFFFFFFFFu);
}

TEST_F(ports_db, remove_that_the_tree_refuses_returns_14) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  script.fail("wavl_delete", 1, 1);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 14u);
  EXPECT_THAT(traces(), ElementsAre(error("ports DB delete err, rsip 0x30007\n")));
  EXPECT_EQ(lum_platform.rsip_count, 1u);
  EXPECT_EQ(lum_num_ots_ctrls(), 2u);
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
}

TEST_F(ports_db, remove_that_cannot_lock_returns_the_locks_code) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  script.fail("pthread_mutex_trylock", 2, EINVAL, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 22u);
  EXPECT_THAT(calls({"wavl_delete"}), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(error("ports DB mutex lock failed, errno: 22\n")));
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
}

TEST_F(ports_db, remove_that_cannot_unlock_returns_the_unlocks_code) {
  ASSERT_EQ(add(rsip), 0u);
  clear_record();
  script.fail("pthread_mutex_unlock", 2, EPERM, &lum_platform.mutex);
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 1u);
  EXPECT_THAT(traces(), ElementsAre(info("ports DB delete done, rsip 0x30007\n"),
                                    error("ports DB mutex unlock failed, errno: 1\n")));
}

}  // namespace

}  // namespace lum_ports_db_test
