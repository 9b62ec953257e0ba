// Ports database: walks, and the memory of removed nodes.
#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ports_db_fixture.h"

namespace ports_db_walks_test {

using namespace ports_db_fixture;
using namespace support;
using testing::ElementsAre;

namespace {

using ports_db_walks = ports_db;

TEST_F(ports_db_walks, walk_visits_index_0_in_rsip_order_and_returns_0) {
  for (const uint32_t at : {3u, 1u, 2u}) ASSERT_EQ(add(at), 0u);
  std::vector<uint32_t> seen;
  const auto visit = [](void *node, void *context) {
    auto &list = *static_cast<std::vector<uint32_t> *>(context);
    list.push_back(static_cast<lum_port_node_info *>(node)->rsip);
    return 0;
  };
  EXPECT_EQ(lum_ports_db_walk_via_rsip(visit, &seen), 0u);
  EXPECT_THAT(seen, ElementsAre(1u, 2u, 3u));
  EXPECT_THAT(calls({"wavl_walk"}), ElementsAre("wavl_walk(0)"));
}

TEST_F(ports_db_walks, walk_that_the_callback_ends_returns_0_as_well) {
  for (const uint32_t at : {3u, 1u, 2u}) ASSERT_EQ(add(at), 0u);
  unsigned visits = 0;
  const auto stop = [](void *, void *context) {
    ++*static_cast<unsigned *>(context);
    return 1;
  };
  EXPECT_EQ(lum_ports_db_walk_via_rsip(stop, &visits), 0u);
  EXPECT_EQ(visits, 1u);
}

TEST_F(ports_db_walks, walk_that_stands_on_a_removed_node_goes_on_with_its_successor) {
  for (const uint32_t at : {1u, 2u, 3u}) ASSERT_EQ(add(at), 0u);
  std::vector<uint32_t> seen;
  for (const lum_port_node_info &node : lum::all_ports()) {
    seen.push_back(node.rsip);
    if (node.rsip == 1) {
      ASSERT_EQ(lum_ports_db_remove_entry(1), 0u);
      ASSERT_EQ(lum_ports_db_remove_entry(2), 0u);
    }
  }
  EXPECT_THAT(seen, ElementsAre(1u, 3u));
}

TEST_F(ports_db_walks, removed_nodes_memory_lives_while_a_walk_is_open) {
  ASSERT_EQ(add(rsip), 0u);
  {
    lum::ports_reader reader;
    const lum_port_node_info *node = lum_ports_db_find_entry(rsip);
    ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
    EXPECT_EQ(node->data.port, 7u);
    EXPECT_EQ(lum::node_keeper_counts().freed, 0u);
  }
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
}

TEST_F(ports_db_walks, another_threads_walk_holds_the_memory_too) {
  ASSERT_EQ(add(rsip), 0u);
  std::atomic<int> stage{0};
  std::thread walker([&] {
    lum::ports_reader reader;
    const lum_port_node_info *node = lum_ports_db_find_entry(rsip);
    stage.store(1);
    stage.notify_all();
    stage.wait(1);
    EXPECT_EQ(node->data.port, 7u);
  });
  stage.wait(0);
  ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_EQ(lum::node_keeper_counts().freed, 0u);
  stage.store(2);
  stage.notify_all();
  walker.join();
  EXPECT_EQ(lum::node_keeper_counts().freed, 1u);
}

TEST_F(ports_db_walks, ports_come_and_go_beside_walks_and_look_ups) {
  std::atomic<bool> done{false};
  std::thread walker([&] {
    while (!done.load()) {
      for (const lum_port_node_info &node : lum::all_ports()) EXPECT_LT(node.rsip, 8u);
    }
  });
  std::thread seeker([&] {
    while (!done.load()) {
      uint32_t handle = 0;
      for (uint32_t at = 0; at < 8; ++at) lum_ports_db_rsip2port_handle(at, &handle);
    }
  });
  for (uint32_t round = 0; round < 300; ++round) {
    const uint32_t at = round % 8;
    add(at);
    lum_ports_db_update_entry(at, 100 + at);
    if (round % 3 != 0) lum_ports_db_remove_entry(at);
    if (round % 50 == 0) clear_record();
  }
  done.store(true);
  walker.join();
  seeker.join();
}

}  // namespace

}  // namespace ports_db_walks_test
