// Platform data: the port model's start-up, new ports and removed ones.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <ostream>
#include <thread>

#include "base/locks.h"
#include "library.h"
#include "lum_ports_db/lum_ports_db.h"

namespace lum_pd_data_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t rsip = 0x30007;

// ---- Start-up of the port model ----

TEST(platform_data_init, zeroes_the_database_and_sets_it_up) {
  open_traces();
  std::memset(static_cast<void *>(&lum_platform), 0x11, sizeof lum_platform);
  EXPECT_EQ(lum_platform_data_init(client_manager, 1), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_init(2, 0)"));
  EXPECT_THAT(traces(), ElementsAre(info("LUM PD Data Init\n").of("lum_pd_data"),
                                    info("LUM Structures Init Success\n").of("lum_pd_data")));
  EXPECT_EQ(lum_platform.rsip_count, 0u);
  EXPECT_EQ(lum_platform.port_handle_count, 0u);
}

TEST(platform_data_init, without_a_context_returns_22) {
  open_traces();
  const context_hidden hidden;
  EXPECT_EQ(lum_platform_data_init(client_manager, 0), 22u);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(traces(), ElementsAre(error("context is NULL\n").of("lum_pd_data")));
}

TEST(platform_data_init_death, without_its_database_the_failure_is_traced_and_the_process_ends) {
  script.fail("wavl_init", 1, 12);
  echo_traces();
  EXPECT_DEATH(lum_platform_data_init(client_manager, 0),
               "LUM_ERR: LUM Structures Init Failed\n.*Assertion");
}

// ---- Adding a device's ports ----

class platform_ports : public running_library {};

TEST_F(platform_ports, each_port_gets_a_node_made_of_the_template) {
  const uint32_t ports[] = {7, 9};
  EXPECT_EQ(lum_platform_ctx_init(1, 3, 2, 2, ports), 0u);
  const lum_port_node_info &node = node_at(0x01030209);
  auto expected = std::make_unique<lum_port_data>();
  expected->rack = 1;
  expected->slot = 3;
  expected->instance = 2;
  expected->port = 9;
  std::strcpy(expected->sub_port[0].ifname, "Ots1_3_2_9_0");
  std::strcpy(expected->sub_port[1].ifname, "Ots1_3_2_9_1");
  expected->sub_port[0].iftype = 188;
  expected->sub_port[1].iftype = 188;
  // The mutex behind the rest is the node's own.
  EXPECT_EQ(std::memcmp(&node.data, expected.get(), offsetof(lum_port_data, port_mutex)), 0);
  EXPECT_STREQ(data_at(0x01030207).sub_port[0].ifname, "Ots1_3_2_7_0");
}

TEST_F(platform_ports, adding_traces_both_names_then_the_port) {
  const uint32_t port = 7;
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &port), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info("construct ifname for rsip 0/3/0/7/0\n"),
                  info("iftype:188 rsip:0/3/0/7/0 ifname 'Ots0_3_0_7_0'\n").of("lum_pd_data"),
                  info("construct ifname for rsip 0/3/0/7/1\n"),
                  info("iftype:188 rsip:0/3/0/7/1 ifname 'Ots0_3_0_7_1'\n"),
                  info("insert into lum_port_db wavl tree rsip: 0x30007\n"),
                  info("Succesfullly Added  Port=7 to ports-DB:\n").of("lum_pd_data")));
}

TEST_F(platform_ports, zero_ports_add_nothing_and_return_0) {
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 0, nullptr), 0u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls({"wavl_insert_thread"}), IsEmpty());
}

TEST_F(platform_ports, adding_without_a_context_returns_22) {
  const context_hidden hidden;
  const uint32_t port = 7;
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &port), 22u);
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 0, &port), 22u);
  EXPECT_THAT(traces(), ElementsAre(error("context is NULL\n"), error("context is NULL\n")));
}

TEST_F(platform_ports, first_failure_ends_the_list_and_keeps_the_ports_before_it) {
  const uint32_t ports[] = {7, 8, 7, 9};
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 4, ports), 14u);
  EXPECT_THAT(traces(),
              lines_in_order({info("Succesfullly Added  Port=8 to ports-DB:\n"),
                              error("Error in adding Port=7 to Optics-DB:\n").of("lum_pd_data"),
                              error("lum_platform_ports_init failed rc:0xe[error 14]\n")}));
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_NE(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 2), nullptr);
  EXPECT_EQ(lum_num_ots_ctrls(), 4u);
}

TEST_F(platform_ports, first_failure_is_returned_whatever_it_is) {
  const uint32_t ports[] = {7, 8};
  script.fail("calloc", 1, 1);
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 2, ports), 12u);
  EXPECT_THAT(traces(),
              lines_in_order({error(56, "Error in adding Port=7 to Optics-DB:\n"),
                              error(57, "lum_platform_ports_init failed rc:0xc[error 12]\n")}));
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_THAT(calls({"wavl_insert_thread"}), IsEmpty());
}

TEST_F(platform_ports, name_that_could_not_be_made_is_traced_and_the_port_added) {
  const uint32_t port = 7;
  script.fail("lum_construct_if_name", 1, 5);
  EXPECT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &port), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(error(61, "OTS iftype:188 rsip:0/3/0/7/0 ifname'' error rc:0x5[error 5]\n")
                      .of("lum_pd_data"),
                  info(275, "construct ifname for rsip 0/3/0/7/1\n"),
                  info(60, "iftype:188 rsip:0/3/0/7/1 ifname 'Ots0_3_0_7_1'\n"),
                  info(208, "insert into lum_port_db wavl tree rsip: 0x30007\n"),
                  info(58, "Succesfullly Added  Port=7 to ports-DB:\n")));
  EXPECT_EQ(data_at(rsip).sub_port[0].iftype, 188);
  EXPECT_EQ(data_at(rsip).sub_port[1].iftype, 188);
}

// ---- Removing a port ----

class port_removal : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    const lum_slot_props slot = {1, 4};
    lum_slot_properties_init(3, 0, &slot);
    lum_port_props props[2] = {};
    props[0] = {rsip, 7, nullptr, {}, 5, 0};
    props[1] = {rsip + 1, 8, nullptr, {}, 6, 0};
    lum_port_properties_init(3, 0, 2, props);
    add_port(rsip);
    add_port(rsip + 1);
    keep_mutex();
    clear_record();
  }
  // As the deletion leaves it.
  static void keep_mutex() {
    lum::port_hold hold(data_at(rsip), {"test", 1});
    hold.keep();
  }
};

TEST_F(port_removal, port_without_controllers_is_removed_with_its_properties) {
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 0u);
  EXPECT_THAT(traces(), ElementsAre(info("executing for r/s/i/p: 0/3/0/7\n").of("lum_pd_data"),
                                    info("ports DB delete done, rsip 0x30007\n"),
                                    info("Succesfully removed Port 7 from inst 0 of Ports-DB:\n")));
  EXPECT_EQ(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_NE(lum_ports_db_find_entry(rsip + 1), nullptr);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 1u);
  EXPECT_EQ(lum_plat_get_port_handle(3, 0, 8), 6u) << "the other port's properties";
}

TEST_F(port_removal, walks_the_database_from_the_first_node_without_its_mutex) {
  watch(lum_platform.mutex, "db");
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 9), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)",
                                   "wavl_get_next(0x30008, 0)"));
  EXPECT_THAT(traces(), ElementsAre(info("executing for r/s/i/p: 0/3/0/9\n")));
}

TEST_F(port_removal, walk_goes_on_with_the_removed_nodes_successor) {
  watch(lum_platform.mutex, "db");
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 0u);
  EXPECT_THAT(calls(), ElementsAre("wavl_get_first(0)", "wavl_running()",
                                   "pthread_mutex_trylock(db)", "wavl_search(0x30007, 0)",
                                   "pthread_mutex_unlock(db)", "pthread_mutex_trylock(db)",
                                   "wavl_delete(0x30007)", "pthread_mutex_unlock(db)",
                                   "wavl_get_next(0x30007, 0)", "wavl_get_next(0x30008, 0)"));
}

class port_removal_refused : public port_removal, public testing::WithParamInterface<int> {};

TEST_P(port_removal_refused, port_with_a_controller_created_or_up_stays_and_the_result_is_0) {
  lum_sub_port_intf &interface = data_at(rsip).sub_port[GetParam() / 2];
  (GetParam() % 2 == 0 ? interface.created : interface.controller_up) = 1;
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 0u);
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 2u);
}

INSTANTIATE_TEST_SUITE_P(each_flag, port_removal_refused, testing::Range(0, 4));

TEST_F(port_removal, takes_the_node_that_matches_whatever_rsip_it_was_added_under) {
  const auto data = std::make_unique<lum_port_data>();
  data->slot = 3;
  data->port = 9;
  ASSERT_EQ(lum_ports_db_add_entry(0x50505, data.get()), 0u);
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 9), 0u);
  EXPECT_EQ(lum_ports_db_find_entry(0x50505), nullptr);
}

TEST_F(port_removal, mutex_that_is_not_held_is_traced_and_the_removal_goes_on) {
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 8), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({error("module access unlock failed with rc 1\n").of("lum_pd_data"),
                              info("Succesfully removed Port 8 from inst 0 of Ports-DB:\n")}));
  EXPECT_EQ(lum_ports_db_find_entry(rsip + 1), nullptr);
}

TEST_F(port_removal, mutex_is_released_before_the_node_goes) {
  lum_port_data &port = data_at(rsip + 1);
  ASSERT_EQ(pthread_mutex_lock(&port.port_mutex), 0);
  watch(port.port_mutex, "port 8");
  clear_record();
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 8), 0u);
  EXPECT_THAT(calls(), texts_in_order({"pthread_mutex_unlock(port 8)", "wavl_delete(0x30008)"}));
  EXPECT_THAT(traces(), Not(Contains(an_error())));
}

TEST_F(port_removal, failing_removal_is_traced_and_returned) {
  script.fail("wavl_delete", 1, 1);
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 14u);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          info(59, "executing for r/s/i/p: 0/3/0/7\n"),
          error(222, "ports DB delete err, rsip 0x30007\n"),
          error(63, "Error in Removing port 7 from inst 0 of Ports-DB:\n").of("lum_pd_data")));
  EXPECT_THAT(calls({"wavl_get_next"}), IsEmpty()) << "the walk is over";
  EXPECT_EQ(lum_plat_num_port_info(3, 0), 2u);
}

TEST_F(port_removal, port_that_could_not_be_removed_has_its_mutex_back) {
  script.fail("wavl_delete", 1, 1);
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 14u);
  lum_port_data &port = data_at(rsip);
  EXPECT_EQ(port.mutex_kept_by, 0u);
  int error = -1;
  std::thread([&] { error = lum::port_hold(port, {"test", 1}).error(); }).join();
  EXPECT_EQ(error, 0);
}

TEST_F(port_removal, removal_that_cannot_take_the_databases_mutex_returns_its_code) {
  script.fail("pthread_mutex_trylock", 2, EINVAL, &lum_platform.mutex);
  EXPECT_EQ(lum_platform_ports_deinit(0, 3, 0, 7), 22u);
  EXPECT_THAT(traces(), lines_in_order({error(220, "ports DB mutex lock failed, errno: 22\n"),
                                        error(63,
                                              "Error in Removing port 7 from inst 0 of "
                                              "Ports-DB:\n")}));
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
}

struct elsewhere {
  uint32_t rack, slot, instance;
  const char *line;
};
void PrintTo(const elsewhere &each, std::ostream *out) { *out << each.line; }

class port_removal_elsewhere : public port_removal,
                               public testing::WithParamInterface<elsewhere> {};

TEST_P(port_removal_elsewhere, leaves_the_port_alone) {
  const elsewhere &each = GetParam();
  EXPECT_EQ(lum_platform_ports_deinit(each.rack, each.slot, each.instance, 7), 0u);
  EXPECT_THAT(traces(), ElementsAre(info(59, each.line)));
  EXPECT_NE(lum_ports_db_find_entry(rsip), nullptr);
}

INSTANTIATE_TEST_SUITE_P(each_number, port_removal_elsewhere,
                         testing::Values(elsewhere{1, 3, 0, "executing for r/s/i/p: 1/3/0/7\n"},
                                         elsewhere{0, 4, 0, "executing for r/s/i/p: 0/4/0/7\n"},
                                         elsewhere{0, 3, 1, "executing for r/s/i/p: 0/3/1/7\n"}));

// ---- Counter and hooks ----

TEST(controller_counter, adds_and_takes_away) {
  lum_inc_ots_cntrs(2);
  lum_inc_ots_cntrs(3);
  lum_dec_ots_cntrs(1);
  EXPECT_EQ(lum_num_ots_ctrls(), 4u);
}

TEST(controller_counter, taking_2_away_at_1_leaves_0) {
  lum_inc_ots_cntrs(1);
  lum_dec_ots_cntrs(2);
  EXPECT_EQ(lum_num_ots_ctrls(), 0u);
}

TEST(controller_counter, adding_does_not_check_for_overflow) {
  lum_inc_ots_cntrs(0xFFFFFFFF);
  lum_inc_ots_cntrs(2);
  EXPECT_EQ(lum_num_ots_ctrls(), 1u);
}

TEST(platform_hooks, have_fixed_answers) {
  EXPECT_EQ(lum_ctx_derive_hw_nodeid(1, 2, 3), 0u);
  EXPECT_EQ(lum_plat_is_optics_inserted(3, 0, 7), 1u);
  EXPECT_EQ(lum_plat_is_optics_inserted(-1, -1, -1), 1u);
}

}  // namespace

}  // namespace lum_pd_data_test
