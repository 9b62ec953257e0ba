// The nodes of a slot's ports, put into the database and taken out.
#include <gmock/gmock.h>

#include <cstdint>

#include "controllers.h"

namespace slot_nodes_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const area lum_api = {"lum_api"};

class adding_nodes : public running_library {};

TEST_F(adding_nodes, port_that_did_not_get_a_node_is_traced) {
  const uint32_t ports[] = {7, 8}, handles[] = {0x11, 0x12};
  script.fail("wavl_insert_thread", 1, 1);
  lum_add_device_to_ports_db(0, 3, 0, 2, ports, handles);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.complains("d", "Port not found in DB for rsip=0x30007\n"),
                              lum_api.complains("d", "Port not found in DB for rsip=0x30008\n")}));
}

TEST_F(adding_nodes, adding_no_port_returns_0) {
  EXPECT_EQ(lum_add_device_to_ports_db(0, 3, 0, 0, nullptr, nullptr), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd",
                                                 "Creating Ports inside Port-DB for R/S/I: "
                                                 "0/3/0\n")));
}

TEST_F(adding_nodes, second_port_with_the_same_handle_is_traced_as_not_found) {
  const uint32_t ports[] = {7, 8}, handles[] = {0x11, 0x11};
  lum_add_device_to_ports_db(0, 3, 0, 2, ports, handles);
  EXPECT_THAT(traces().back(), lum_api.complains("d", "Port not found in DB for rsip=0x30008\n"));
  EXPECT_NE(lum_ports_db_find_entry(0x30007), nullptr);
}

TEST_F(adding_nodes, without_a_context_returns_22) {
  const context_hidden hidden;
  EXPECT_EQ(lum_add_device_to_ports_db(0, 3, 0, 0, nullptr, nullptr), 22u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.says("ddd", "Creating Ports inside Port-DB for R/S/I: 0/3/0\n"),
                          area{"lum_pd_data"}.complains("", "context is NULL\n")));
}

// The node itself is made with all 32 bits.
TEST_F(adding_nodes, gives_the_handle_to_the_port_of_the_low_16_bits) {
  const uint32_t port = 0x10007, handle = 0x11;
  lum_add_device_to_ports_db(0, 2, 0, 1, &port, &handle);
  EXPECT_EQ(node_at(0x30007).port_handle, 0u);
  EXPECT_THAT(traces(),
              lines_in_order(
                  {area{"lum_ports_db"}.says("d", "insert into lum_port_db wavl tree failed  0\n"),
                   lum_api.complains("d", "Port not found in DB for rsip=0x20007\n")}));
}

// ---- Taking them out ----

class removing_nodes : public created_ports {};

TEST_F(removing_nodes, takes_the_ports_of_the_slots_first_entries) {
  lum_del_device_from_ports_db(0, 3, 0, 3);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.says("dddd", "Removed node for (0,3,0,7)"),
                              lum_api.says("dddd", "Removed node for (0,3,0,8)"),
                              lum_api.complains("dddd", "failed to remove node for (0,3,0,0)")}));
  EXPECT_EQ(lum_ports_db_find_entry(first), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(second), nullptr);
}

TEST_F(removing_nodes, goes_on_after_one_that_is_not_there) {
  EXPECT_EQ(lum_ports_db_remove_entry(first), 0u);
  lum_del_device_from_ports_db(0, 3, 0, 2);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.complains("dddd", "failed to remove node for (0,3,0,7)"),
                              lum_api.says("dddd", "Removed node for (0,3,0,8)")}));
  EXPECT_EQ(lum_ports_db_find_entry(second), nullptr);
}

TEST_F(removing_nodes, looks_the_entries_up_with_slot_and_instance_cut_to_16_bits) {
  lum_del_device_from_ports_db(0, 0x10003, 0, 1);
  EXPECT_THAT(traces().back(), lum_api.says("dddd", "Removed node for (0,65539,0,7)"));
  EXPECT_EQ(lum_ports_db_find_entry(first), nullptr);
}

TEST_F(removing_nodes, of_count_0_does_nothing) {
  lum_del_device_from_ports_db(0, 3, 0, 0);
  EXPECT_THAT(traces(), IsEmpty());
}

}  // namespace

}  // namespace slot_nodes_test
