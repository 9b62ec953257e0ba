// Ports database: look-ups before there is one, without its mutex, and with names that do not help.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "look_ups_fixture.h"

namespace ports_db_edges_test {

using namespace look_ups_fixture;
using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t foreign = 0x2222;  // known to the client only

int32_t count_visit(void *, void *context) {
  ++*static_cast<unsigned *>(context);
  return 0;
}

// ---- Not running ----

TEST(without_a_database, update_returns_14_and_remove_2) {
  open_traces();
  EXPECT_EQ(lum_ports_db_update_entry(rsip, 5), 14u);
  EXPECT_THAT(traces(), ElementsAre(error(217, "wavl is not running\n"),
                                    info(212, "insert into lum_port_db wavl tree failed  0\n")));
  EXPECT_EQ(lum_ports_db_remove_entry(rsip), 2u);
}

TEST(without_a_database, walk_visits_nothing_and_returns_0) {
  unsigned visits = 0;
  EXPECT_EQ(lum_ports_db_walk_via_rsip(count_visit, &visits), 0u);
  EXPECT_EQ(visits, 0u);
}

TEST(without_a_database, conversions_find_nothing) {
  uint32_t word = 1;
  lum_device_id_td record = marked();
  EXPECT_EQ(lum_ports_db_rsip2port_handle(rsip, &word), not_found);
  EXPECT_EQ(lum_ports_db_port_handle2rsip(handle, &word), not_found);
  EXPECT_EQ(word, 1u);
  EXPECT_EQ(lum_ports_db_ifname2devid("Ots0_3_0_7_0", &record), not_found);
  EXPECT_TRUE(is_marked(record));
}

// ---- A port without its handle ----

TEST(port_without_a_handle, has_handle_0_and_is_not_found_by_it) {
  ASSERT_EQ(boot(), 0u);
  const uint32_t port = 7;
  ASSERT_EQ(lum_platform_ctx_init(0, 3, 0, 1, &port), 0u);
  uint32_t out = 1;
  EXPECT_EQ(lum_ports_db_rsip2port_handle(rsip, &out), 0u);
  EXPECT_EQ(out, 0u);
  EXPECT_EQ(lum_get_port_node_from_port_handle(0), nullptr);
}

// One port whose two controllers exist.
class look_up_edges : public look_ups {};

// ---- Without the database's mutex ----

TEST_F(look_up_edges, walk_and_conversions_from_a_handle_take_no_mutex) {
  watch(lum_platform.mutex, "db");
  unsigned visits = 0;
  EXPECT_EQ(lum_ports_db_walk_via_rsip(count_visit, &visits), 0u);
  EXPECT_EQ(visits, 1u);
  uint32_t out = 0;
  EXPECT_EQ(lum_ports_db_port_handle2rsip(handle, &out), 0u);
  lum_device_id_td record;
  EXPECT_EQ(lum_ports_db_port_handle2devid(handle, 0, &record), 0u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

// ---- Device ids ----

TEST_F(look_up_edges, ifh2devid_asks_no_client_for_a_handle_that_the_database_knows) {
  client.set_name(ifh_1, "Ots0_9_0_9_1");
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(ifh_1, &out), 0u);
  EXPECT_EQ(out.ifhandle, ifh_1);
  EXPECT_THAT(calls({"ifname_from_ifh"}), IsEmpty());
}

TEST_F(look_up_edges, ifh2devid_needs_no_context_for_a_handle_that_the_database_knows) {
  const context_hidden hidden;
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(ifh_1, &out), 0u);
  EXPECT_EQ(out.ifhandle, ifh_1);
}

TEST_F(look_up_edges, ifh2devid_of_an_unknown_port_without_a_sub_port_is_no_fatal_matter) {
  client.set_name(foreign, "Ots0_9_0_9");
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(foreign, &out), 0u);
  EXPECT_TRUE(is_marked(out));
}

TEST_F(look_up_edges, ifname2devid_takes_a_name_of_another_type) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifname2devid("Optics0_3_0_7_1", &out), 0u);
  EXPECT_EQ(out.ifhandle, ifh_1);
  EXPECT_THAT(traces(), ElementsAre(error(278, "Ifname 'Optics0_3_0_7_1' wrong type: 0\n")));
}

// ---- Port data by handle ----

class port_data_by_handle : public look_up_edges {
 protected:
  cerrno get(uint32_t ifhandle) { return lum_get_s_dev_info(ifhandle, &out, &device); }
  static void set_name(const char *name) { std::strcpy(data_at(rsip).device_id[0].ifname, name); }

  lum_port_data *out = nullptr;
  lum_device_id_td device = marked();
};

TEST_F(port_data_by_handle, is_not_given_when_the_handles_name_does_not_parse) {
  script.fail_with_errno("imc_ifname_parse", 1, 93, ENOENT);
  EXPECT_EQ(get(ifh_0), 2u);
  EXPECT_THAT(traces(), ElementsAre(error(276, "Parsing Ifname 'Ots0_3_0_7_0' error: error 2\n"),
                                    error(224, "parse_if_name error 93\n"),
                                    error(225, "Failed to get device for interface 1000\n")));
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(is_marked(device));
}

TEST_F(port_data_by_handle, is_not_given_when_the_record_has_no_port_handle) {
  data_at(rsip).device_id[0].valid &= ~LUM_DEVID_PORT_HANDLE;
  EXPECT_EQ(get(ifh_0), 2u);
  EXPECT_THAT(traces(), ElementsAre(error(225, "Failed to get device for interface 1000\n")));
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(is_marked(device));
}

TEST_F(port_data_by_handle, is_not_given_when_the_records_name_does_not_parse) {
  script.fail("imc_ifname_parse", 2, 93);
  EXPECT_EQ(get(ifh_0), 93u);
  EXPECT_EQ(device.ifhandle, ifh_0) << "the record is there by then";
  EXPECT_EQ(out, nullptr);
}

TEST_F(port_data_by_handle, is_that_of_the_records_name) {
  add_port(rsip + 1);
  set_name("Ots0_3_0_8_0");
  EXPECT_EQ(get(ifh_0), 0u);
  EXPECT_EQ(out, &data_at(rsip + 1));
}

TEST_F(port_data_by_handle, of_a_record_that_names_an_unknown_port_is_22) {
  set_name("Ots0_9_0_9_0");
  EXPECT_EQ(get(ifh_0), 22u);
  EXPECT_STREQ(device.ifname, "Ots0_9_0_9_0");
  EXPECT_EQ(out, nullptr);
}

TEST_F(port_data_by_handle, does_not_read_beyond_a_records_name_without_an_end) {
  std::memset(data_at(rsip).device_id[0].ifname, 'x', LUM_DEVID_NAME_SIZE);
  EXPECT_EQ(get(ifh_0), 22u);
  EXPECT_THAT(traces(), ElementsAre(error(276, "Parsing Ifname '" + std::string(64, 'x') +
                                                   "' error: error 22\n")));
  EXPECT_EQ(out, nullptr);
}

// ---- rsip by interface handle ----

TEST_F(look_up_edges, rsip_from_a_foreign_handle_without_a_context_is_22) {
  client.set_name(foreign, "Ots0_3_0_7_1");
  const context_hidden hidden;
  uint32_t out = 0x77;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(foreign, &out), 22u);
  EXPECT_EQ(out, 0x77u);
}

TEST_F(look_up_edges, rsip_from_ifh_leaves_the_trace_of_a_parse_error_to_the_parser) {
  script.fail_with_errno("imc_ifname_parse", 1, 93, ENOENT);
  uint32_t out = 0;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(ifh_0, &out), 93u);
  EXPECT_THAT(
      traces(),
      ElementsAre(error(276, "Parsing Ifname 'Ots0_3_0_7_0' error: error 2\n").of("lum_utils")));
}

TEST_F(look_up_edges, rsip_from_ifh_needs_no_sub_port) {
  client.set_name(foreign, "Ots1_2_3_4");
  uint32_t out = 0;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(foreign, &out), 0u);
  EXPECT_EQ(out, 0x01020304u);
}

// ---- Names of ports ----

TEST_F(look_up_edges, intfname_for_port_that_cannot_be_made_is_traced_and_its_code_returned) {
  script.fail("lum_construct_if_name", 1, 5);
  char name[LUM_IFNAME_SIZE] = {};
  EXPECT_EQ(lum_get_intfname_for_port(0, 3, 0, 7, 1, name), 5u);
  EXPECT_THAT(
      traces(),
      ElementsAre(
          error(227, "Failed to get if name for port = 7 subport = 1\n").of("lum_ports_db")));
}

}  // namespace

}  // namespace ports_db_edges_test
