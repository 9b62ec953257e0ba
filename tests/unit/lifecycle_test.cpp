// Slots and ports come and go.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/locks.h"
#include "blocks.h"
#include "controllers.h"
#include "lum_api/lum_api.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

const area lum_api = {"lum_api"};

class slots : public running_library {
 protected:
  static constexpr lum_slot_props four_ports = {1, 4};
};

// ---- Slots ----

TEST_F(slots, opening_traces_the_place_and_returns_0) {
  EXPECT_EQ(lum_plat_init(1, 3, 2, &four_ports), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 1/3/2/\n")));
  EXPECT_THAT(calls(), ElementsAre("lum_ctx_derive_hw_nodeid(1, 3, 2)"));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
}

TEST_F(slots, opening_clears_the_resync_marker) {
  lum_get_ctx()->resync = 1;
  EXPECT_EQ(lum_plat_init(0, 3, 0, &four_ports), 0u);
  EXPECT_EQ(lum_get_ctx()->resync, 0u);
}

TEST_F(slots, opening_cuts_slot_and_instance_to_16_bits) {
  EXPECT_EQ(lum_plat_init(0, 0x10003, 0x20001, &four_ports), 0u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/65539/131073/\n")));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
  lum_plat_deinit(0, 0x50003, 0x60001);
  EXPECT_EQ(lum_plat_is_slot_used(3), 0u);
}

TEST_F(slots, failing_node_id_is_traced_and_returned_with_the_slot_open) {
  script.fail("lum_ctx_derive_hw_nodeid", 1, 19);
  EXPECT_EQ(lum_plat_init(0, 3, 0, &four_ports), 19u);
  EXPECT_THAT(
      traces().back(),
      lum_api.complains("ds", "lum_platform_ctx_derive_hw_nodeid failed rc:0x13[error 19]\n"));
  EXPECT_EQ(lum_plat_is_slot_used(3), 1u);
}

TEST_F(slots, closing_traces_its_end_and_returns_0) {
  EXPECT_EQ(lum_plat_init(0, 3, 0, &four_ports), 0u);
  clear_record();
  EXPECT_EQ(lum_plat_deinit(2, 3, 0), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("dddd", "exit: R/S/I: 2/3/0/ rc: 0\n")));
  EXPECT_EQ(lum_plat_is_slot_used(3), 0u);
  EXPECT_EQ(lum_plat_deinit(2, 3, 0), 0u);
}

// ---- Creating ports ----

class creation : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    const lum_slot_props slot = {1, 8};
    lum_plat_init(0, 3, 0, &slot);
    for (const uint32_t port : {7, 8}) modules.at(3, 0, port);
    clear_record();
  }
  static cerrno create(const std::vector<lum_port_props> &props) {
    return lum_create_ports(static_cast<uint32_t>(props.size()), props.data());
  }
};

TEST_F(creation, steps_come_in_order) {
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 0u);
  EXPECT_THAT(
      traces(),
      lines_in_order(
          {lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"),
           area{"lum_defines"}.says("dd", "entry s: 3 i:0\n"),
           lum_api.says("ddd", "Creating Ports inside Port-DB for R/S/I: 0/3/0\n"),
           area{"lum_pd_data"}.says("d", "Succesfullly Added  Port=7 to ports-DB:\n"),
           area{"lum_pd_data"}.says("d", "Succesfullly Added  Port=8 to ports-DB:\n"),
           area{"lum_ports_db"}.says(
               "dd", "insert into lum_port_db wavl tree port_handle 6407, 0x1907\n"),
           area{"lum_ports_db"}.says(
               "dd", "insert into lum_port_db wavl tree port_handle 6408, 0x1908\n"),
           area{"lum_controller_interface"}.says("", "entry\n"),
           area{"lum_controller_interface"}.says("dddd", "controller CREATE r/s/i/p : 0/3/0/7 \n"),
           area{"lum_controller_interface"}.says("dddd", "controller CREATE r/s/i/p : 0/3/0/8 \n"),
           lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc:0\n")}));
}

TEST_F(creation, each_port_gets_its_handle_and_context_cell) {
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 0u);
  EXPECT_EQ(node_at(0x30008).port_handle, handle_for(0x30008));
  EXPECT_EQ(lum_get_port_node_from_port_handle(handle_for(0x30007)), &node_at(0x30007));
  ASSERT_NE(lum_plat_get_sdev_ctx(3, 0, handle_for(0x30008)), nullptr);
  EXPECT_EQ(*lum_plat_get_sdev_ctx(3, 0, handle_for(0x30008)), 0x30008u);
}

TEST_F(creation, each_port_gets_an_error_checking_mutex) {
  EXPECT_EQ(create(props_of({0x30007})), 0u);
  pthread_mutex_t &mutex = data_at(0x30007).port_mutex;
  EXPECT_EQ(pthread_mutex_lock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_lock(&mutex), EDEADLK);
  EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_unlock(&mutex), EPERM);
}

TEST_F(creation, mutex_without_its_attributes_is_left_cleared) {
  const pthread_mutex_t cleared = {};
  for (const char *call : {"pthread_mutexattr_init", "pthread_mutexattr_settype"}) {
    script.forget();
    script.fail(call, 1, 22);
    const lum_port_node_info &node = add_port(call[18] == 'i' ? 0x30007 : 0x30008);
    EXPECT_EQ(std::memcmp(&node.data.port_mutex, &cleared, sizeof cleared), 0) << call;
  }
}

TEST_F(creation, traces_rack_0_on_entry_and_uses_the_rack_of_the_last_entry) {
  EXPECT_EQ(create(props_of({0x05030007, 0x02030008})), 0u);
  EXPECT_THAT(traces().front(), lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/3/0/\n"));
  EXPECT_THAT(traces().back(), lum_api.says("dddd", "LUM_API: exit: R/S/I: 2/3/0/ rc:0\n"));
  EXPECT_NE(lum_ports_db_find_entry(0x02030007), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(0x05030007), nullptr);
  EXPECT_EQ(im.batches.at(0).names[0], "Ots2_3_0_7_0");
}

TEST_F(creation, with_count_0_creates_nothing_and_calls_the_controller_creation_with_rack_0) {
  const block_watch blocks;
  EXPECT_EQ(lum_create_ports(0, nullptr), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd", "LUM_API: entry: R/S/I: 0/0/0/\n"),
                                    area{"lum_defines"}.says("dd", "entry s: 0 i:0\n"),
                                    lum_api.says("ddd",
                                                 "Creating Ports inside Port-DB for R/S/I: "
                                                 "0/0/0\n"),
                                    lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/0/0/ rc:0\n")));
  EXPECT_THAT(im.batches, IsEmpty());
  // Two empty arrays; request, entries, names and types of the empty batch.
  EXPECT_EQ(blocks.taken(), 6u);
}

TEST_F(creation, clears_the_resync_marker) {
  lum_get_ctx()->resync = 1;
  EXPECT_EQ(create(props_of({0x30007})), 0u);
  EXPECT_EQ(lum_get_ctx()->resync, 0u);
}

TEST_F(creation, without_memory_returns_12_with_nothing_left_and_no_further_trace) {
  for (const unsigned nth : {1u, 2u}) {
    const block_watch blocks;
    script.forget();
    script.fail("calloc", nth, 1);
    clear_record();
    EXPECT_EQ(create(props_of({0x30007})), 12u);
    EXPECT_THAT(blocks.live(), IsEmpty());
    EXPECT_THAT(traces(), Not(Contains(starting("Creating Ports"))));
    EXPECT_THAT(traces(), Not(Contains(starting("LUM_API: exit"))));
  }
  EXPECT_THAT(traces(), Not(Contains(an_error())));
}

TEST_F(creation, refused_batch_is_traced_with_the_last_rsip_and_returned) {
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 31u);
  EXPECT_THAT(
      traces(),
      lines_in_order({lum_api.complains("d", "OTS controller create failed for rsip: (0x30008)"),
                      lum_api.says("dddd", "LUM_API: exit: R/S/I: 0/3/0/ rc:31\n")}));
}

TEST_F(creation, port_handle_is_that_of_the_slot_table_cut_to_16_bits) {
  auto props = props_of({0x30007});
  props[0].port_handle = 0x54321;
  EXPECT_EQ(create(props), 0u);
  EXPECT_EQ(node_at(0x30007).port_handle, 0x4321u);
}

TEST_F(creation, slot_out_of_range_has_handle_0_and_touches_no_table) {
  EXPECT_EQ(create(props_of({0x00FF0507})), 0u);
  EXPECT_EQ(node_at(0x00FF0507).port_handle, 0u);
}

// ---- The database's part ----

TEST_F(creation, port_that_did_not_get_a_node_is_traced) {
  const uint32_t ports[] = {7, 8}, handles[] = {0x11, 0x12};
  script.fail("wavl_insert_thread", 1, 1);
  lum_add_device_to_ports_db(0, 3, 0, 2, ports, handles);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.complains("d", "Port not found in DB for rsip=0x30007\n"),
                              lum_api.complains("d", "Port not found in DB for rsip=0x30008\n")}));
}

TEST_F(creation, adding_no_port_returns_0) {
  EXPECT_EQ(lum_add_device_to_ports_db(0, 3, 0, 0, nullptr, nullptr), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ddd",
                                                 "Creating Ports inside Port-DB for R/S/I: "
                                                 "0/3/0\n")));
}

TEST_F(creation, second_port_with_the_same_handle_is_traced_as_not_found) {
  const uint32_t ports[] = {7, 8}, handles[] = {0x11, 0x11};
  lum_add_device_to_ports_db(0, 3, 0, 2, ports, handles);
  EXPECT_THAT(traces().back(), lum_api.complains("d", "Port not found in DB for rsip=0x30008\n"));
  EXPECT_NE(lum_ports_db_find_entry(0x30007), nullptr);
}

TEST_F(creation, removing_a_device_removes_the_ports_of_the_slots_first_entries) {
  EXPECT_EQ(create(props_of({0x30007, 0x30008})), 0u);
  clear_record();
  lum_del_device_from_ports_db(0, 3, 0, 3);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.says("dddd", "Removed node for (0,3,0,7)"),
                              lum_api.says("dddd", "Removed node for (0,3,0,8)"),
                              lum_api.complains("dddd", "failed to remove node for (0,3,0,0)")}));
  EXPECT_EQ(lum_ports_db_find_entry(0x30007), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(0x30008), nullptr);
}

TEST_F(creation, removing_no_device_does_nothing) {
  lum_del_device_from_ports_db(0, 3, 0, 0);
  EXPECT_THAT(traces(), IsEmpty());
}

// ---- Updating a port ----

class port_update : public created_ports {};

TEST_F(port_update, of_an_unknown_port_returns_22_and_touches_nothing) {
  EXPECT_EQ(lum_update_port(0, 3, 0, 44, 1), 22u);
  EXPECT_THAT(traces(), ElementsAre(lum_api.complains("d", "port_node NULL for rsip: 0x3002c")));
  EXPECT_THAT(calls({"im_update_req_by_ifhandle", "led_set_state", "i2c_write_byte"}), IsEmpty());
}

TEST_F(port_update, with_state_0_updates_controllers_and_led_but_provisions_nothing) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 0), 0u);
  EXPECT_THAT(calls({"im_update_req_by_ifhandle", "led_set_state", "i2c_write_byte"}),
              ElementsAre("im_update_req_by_ifhandle(188, 3744, 0x80000006, 2)",
                          "led_set_state(0x30007, 0, 0)", "led_set_state(0x30007, 0, 3)"));
  EXPECT_THAT(traces(), Not(Contains(starting("subport"))));
}

TEST_F(port_update, with_a_state_provisions_both_sub_ports_with_their_own_change_bits) {
  data_at(first).port_cfg[0].changed_bits = 0x40000;
  data_at(first).port_cfg[1].changed_bits = 0x40000;
  data_at(first).port_cfg[1].mode = 3;
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(), lines_in_order({info("subport 0 changed bits: [0x40000] RSIP 0/3/0/7\n"),
                                        info("Write page 3 offset 85 val 1 on 0/7 rc 0\n"),
                                        info("subport 1 changed bits: [0x40000] RSIP 0/3/0/7\n"),
                                        info("Write page 3 offset 80 val 2 on 0/7 rc 0\n")}));
}

TEST_F(port_update, led_is_set_to_fault_whatever_the_state) {
  client.set_led(first, 1);
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 4), 0u);
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_EQ(data_at(first).led_state, 3u);
}

TEST_F(port_update, refused_update_is_traced_and_the_rest_is_done) {
  script.fail("im_update_req_by_ifhandle", 1, 31);
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(), Contains(lum_api.complains("", "Controller state update failed\n")));
  EXPECT_EQ(client.led(first), 3u);
  EXPECT_THAT(traces(), Contains(starting("subport 1 changed bits")));
}

TEST_F(port_update, led_failure_is_traced_and_the_rest_is_done) {
  script.fail("led_set_state", 2, 5);
  EXPECT_EQ(lum_update_port(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(traces(), Contains(lum_api.complains("", "LED state update failed\n")));
  EXPECT_THAT(traces(), Contains(starting("subport 1 changed bits")));
}

// ---- Resync and calls that pass on ----

class api_calls : public created_ports {};

TEST_F(api_calls, resync_asks_the_entity_agent_and_then_clears_the_marker) {
  lum_get_ctx()->resync = 1;
  lum_resync_with_ea();
  EXPECT_THAT(traces().front(), lum_api.says("",
                                             "Need to Resync-with EA-Client, sending "
                                             "Replay-Request from EA-Server\n"));
  EXPECT_EQ(lum_get_ctx()->resync, 0u);
}

TEST_F(api_calls, change_of_role_does_nothing) {
  lum_change_rp_role();
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(api_calls, hw_info_calls_pass_on) {
  lum_hw_info_out out = {};
  lum_hw_info_in in = {};
  const uint32_t handle = 0x1001;
  const uint64_t bits = 0;
  EXPECT_EQ(lum_get_hw_info_by_ifh(1, &handle, &out), 0u);
  EXPECT_EQ(lum_set_hw_info_by_ifh(1, &handle, &in, &bits), 0u);
  EXPECT_EQ(lum_get_hw_info_by_ifh(0, &handle, &out), 22u);
  EXPECT_EQ(lum_set_hw_info_by_ifh(1, nullptr, &in, &bits), 22u);
  EXPECT_THAT(traces(), lines_in_order({info("num_count 1\n"), info("set hw info num ports 1\n"),
                                        info("num_count 0\n"), info("set hw info num ports 1\n")}));
}

TEST_F(api_calls, ready_info_with_count_0_and_arrays_returns_0_and_without_a_name_array_22) {
  const uint32_t handles[] = {0x2001};
  const char names[1][64] = {"Ots0_3_0_7_0"};
  EXPECT_EQ(lum_set_controller_ready_info(0, handles, names), 0u);
  EXPECT_EQ(lum_set_controller_ready_info(-7, handles, names), 0u);
  EXPECT_EQ(lum_set_controller_ready_info(0, handles, nullptr), 22u);
  EXPECT_EQ(lum_set_controller_ready_info(1, nullptr, names), 22u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(api_calls, ready_info_records_every_element_and_returns_the_last_ones_result) {
  const uint32_t handles[] = {0x2001, 0x2002, 0x2003};
  const char names[3][64] = {"Ots0_3_0_7_0", "Ots0_3_0_44_0", "Ots0_3_0_8_1"};
  EXPECT_EQ(lum_set_controller_ready_info(3, handles, names), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({lum_api.says("dsd", "Update ifh 0x2001 for Ots0_3_0_7_0, rc 0\n"),
                              lum_api.says("dsd", "Update ifh 0x2002 for Ots0_3_0_44_0, rc 22\n"),
                              lum_api.says("dsd", "Update ifh 0x2003 for Ots0_3_0_8_1, rc 0\n")}));
  EXPECT_EQ(interface_at(second, 1).ifhandle, 0x2003u);
  EXPECT_EQ(lum_set_controller_ready_info(2, handles, names), 22u);
}

TEST_F(api_calls, ready_info_takes_a_name_that_fills_its_element_without_an_end) {
  const uint32_t handles[] = {0x2001, 0x2002};
  char names[2][64];
  std::memset(names[0], '1', sizeof names[0]);
  std::memcpy(names[0], "Ots0_3_0_", 9);
  std::strcpy(names[1], "Ots0_3_0_7_0");
  EXPECT_EQ(lum_set_controller_ready_info(1, handles, names), 22u);
  EXPECT_THAT(traces().back(), lum_api.says("dsd", "Update ifh 0x2001 for " +
                                                       std::string(names[0], 64) + ", rc 22\n"));
}

// ---- The serial lock ----

class serial_lock : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    watch(lum::serial_mutex, "serial");
  }
};

TEST_F(serial_lock, is_taken_by_trying_and_released) {
  lum_serial_lock(1, "caller");
  lum_serial_unlock(2, "caller");
  EXPECT_THAT(calls(),
              ElementsAre("pthread_mutex_trylock(serial)", "pthread_mutex_unlock(serial)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(serial_lock, taken_twice_fails_with_35_and_is_released) {
  lum_serial_lock(1, "caller");
  clear_record();
  lum_serial_lock(2, "caller");
  EXPECT_THAT(calls(), ElementsAre("pthread_mutex_trylock(serial)",
                                   "ptd_set_mutex_block(\"lum_serial_lock\", 799)",
                                   "pthread_mutex_lock(serial)", "ptd_unset_mutex_block()",
                                   "pthread_mutex_unlock(serial)"));
  EXPECT_THAT(traces(), ElementsAre(lum_api.complains("ds",
                                                      "serial lock failed with rc 35 for "
                                                      "caller\n")));
}

TEST_F(serial_lock, failing_lock_is_traced_with_the_callers_name) {
  script.fail("pthread_mutex_trylock", 1, 22, &lum::serial_mutex);
  lum_serial_lock(1, nullptr);
  EXPECT_THAT(traces(),
              ElementsAre(lum_api.complains("ds", "serial lock failed with rc 22 for \n")));
}

TEST_F(serial_lock, failing_release_is_traced_on_the_info_channel) {
  lum_serial_unlock(1, "caller");
  EXPECT_THAT(traces(), ElementsAre(lum_api.says("ds",
                                                 "serial unlock failed with rc 1 for "
                                                 "caller\n")));
}

}  // namespace
