// Ports created from many threads at once, of different slots and of one.
#include <gtest/gtest.h>

#include <barrier>
#include <string>
#include <thread>
#include <vector>

#include "lum_linux/services.h"
#include "node.h"
#include "settings.h"

namespace {

using stress::node;
using stress::port_place;

constexpr uint32_t threads = 4;

cerrno create(const port_place &port) {
  lum_port_props record = {};
  record.rsip = port.rsip;
  record.port_index = port.port;
  record.port_handle = port.handle;
  return lum_create_ports(1, &record);
}

// Each thread creates its share of the ports, one after the other, those of one slot in turn with
// the others.
void create_side_by_side(node &node) {
  std::barrier start(threads);
  std::vector<std::thread> creators;
  for (uint32_t t = 0; t < threads; ++t) {
    creators.emplace_back([&, t] {
      start.arrive_and_wait();
      for (std::size_t i = t; i < node.ports().size(); i += threads) {
        EXPECT_EQ(create(node.ports()[i]), 0u) << node.ports()[i].rsip;
      }
    });
  }
  for (std::thread &creator : creators) creator.join();
}

void expect_whole(const port_place &port) {
  const lum_port_data *data = stress::data_of(port);
  ASSERT_NE(data, nullptr) << port.rsip;
  uint32_t handle = 0, rsip = 0;
  EXPECT_EQ(lum_ports_db_rsip2port_handle(port.rsip, &handle), 0u);
  EXPECT_EQ(handle, port.handle);
  EXPECT_EQ(lum_safely_get_rsip(port.handle, &rsip), 0u);
  EXPECT_EQ(rsip, port.rsip);
  for (uint32_t s = 0; s < LUM_SUB_PORTS; ++s) {
    const uint32_t ifhandle = stress::ifhandle_of(port, s);
    EXPECT_NE(ifhandle, 0u);
    EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(ifhandle, &rsip), 0u);
    EXPECT_EQ(rsip, port.rsip);
  }
  EXPECT_EQ(stress::word(data->is_dom_enabled), 1u);
  EXPECT_EQ(data->chkpt.created, 1u);
  EXPECT_NE(data->chkpt.chkpt_id, 0u);
  const uint32_t *context = lum_plat_get_sdev_ctx(port.slot, 0, port.handle);
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(*context, port.rsip);
}

}  // namespace

TEST(creations, from_many_threads_leave_every_port_whole) {
  stress::node_shape shape;
  shape.slots = 3;
  shape.ports_per_slot = 12;
  node node(shape);
  const uint64_t rounds = stress::setting("LUM_STRESS_CREATIONS", 5);
  for (uint64_t round = 0; round < rounds; ++round) {
    for (uint32_t s = 0; s < shape.slots; ++s) {
      const lum_slot_props props = {1, shape.ports_per_slot};
      ASSERT_EQ(lum_plat_init(0, shape.first_slot + s, 0, &props), 0u);
    }
    create_side_by_side(node);
    ASSERT_TRUE(node.wait_idle());
    EXPECT_EQ(stress::ports_in_database(), node.ports().size());
    EXPECT_EQ(lum_num_ots_ctrls(), LUM_SUB_PORTS * node.ports().size());
    for (uint32_t s = 0; s < shape.slots; ++s) {
      EXPECT_EQ(lum_plat_num_port_info(shape.first_slot + s, 0), shape.ports_per_slot);
    }
    for (const port_place &port : node.ports()) expect_whole(port);
    node.delete_all();
    ASSERT_TRUE(node.wait_idle());
    EXPECT_EQ(stress::ports_in_database(), 0u);
  }
}
