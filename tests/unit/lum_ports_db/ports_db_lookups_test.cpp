// Ports database: conversions between a port's identities.
#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <string>

#include "look_ups_fixture.h"

namespace ports_db_lookups_test {

using namespace look_ups_fixture;
using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// ---- rsip and port handle ----

TEST_F(look_ups, rsip_to_port_handle) {
  uint32_t out = 1;
  EXPECT_EQ(lum_ports_db_rsip2port_handle(rsip, &out), 0u);
  EXPECT_EQ(out, handle);
}

TEST_F(look_ups, unknown_rsip_to_port_handle_leaves_the_output) {
  uint32_t out = 1;
  EXPECT_EQ(lum_ports_db_rsip2port_handle(rsip + 1, &out), not_found);
  EXPECT_EQ(out, 1u);
}

TEST_F(look_ups, port_handle_to_rsip) {
  uint32_t out = 1;
  EXPECT_EQ(lum_ports_db_port_handle2rsip(handle, &out), 0u);
  EXPECT_EQ(out, rsip);
}

TEST_F(look_ups, unknown_port_handle_to_rsip_leaves_the_output) {
  uint32_t out = 1;
  EXPECT_EQ(lum_ports_db_port_handle2rsip(9, &out), not_found);
  EXPECT_EQ(out, 1u);
}

// ---- Name of a handle ----

TEST_F(look_ups, name_from_the_database_without_its_mutex) {
  watch(lum_platform.mutex, "db");
  char name[LUM_DEVID_NAME_SIZE];
  EXPECT_EQ(lum_get_ifname_from_ctx(ifh_0, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_0");
  EXPECT_EQ(lum_get_ifname_from_ctx(ifh_1, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
  EXPECT_THAT(calls({"pthread_mutex_trylock"}), IsEmpty());
}

TEST_F(look_ups, name_of_an_unknown_handle_is_22) {
  char name[LUM_DEVID_NAME_SIZE];
  EXPECT_EQ(lum_get_ifname_from_ctx(0x9999, name), 22u);
}

TEST_F(look_ups, first_sub_port_with_the_handle_wins) {
  data_at(rsip).sub_port[0].ifhandle = ifh_1;
  char name[LUM_DEVID_NAME_SIZE];
  EXPECT_EQ(lum_get_ifname_from_ctx(ifh_1, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_0");
}

TEST(look_ups_without_ports, name_from_an_empty_database_is_22) {
  ASSERT_EQ(boot(), 0u);
  char name[LUM_DEVID_NAME_SIZE];
  EXPECT_EQ(lum_get_ifname_from_ctx(1, name), 22u);
}

// ---- Device id by interface handle ----

TEST_F(look_ups, ifh2devid_copies_the_sub_ports_record) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(ifh_1, &out), 0u);
  EXPECT_EQ(out.valid, 0xFu);
  EXPECT_EQ(out.port_handle, handle);
  EXPECT_EQ(out.iftype, 188u);
  EXPECT_EQ(out.ifhandle, ifh_1);
  EXPECT_STREQ(out.ifname, "Ots0_3_0_7_1");
}

TEST_F(look_ups, ifh2devid_asks_the_client_for_a_handle_that_the_database_does_not_know) {
  client.set_name(0x2222, "Ots0_3_0_7_1");
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(0x2222, &out), 0u);
  EXPECT_THAT(calls({"ifname_from_ifh"}), ElementsAre("ifname_from_ifh(0x2222)"));
  EXPECT_EQ(out.ifhandle, ifh_1);
}

TEST_F(look_ups, ifh2devid_whose_port_is_not_in_the_database_returns_0_and_leaves_the_output) {
  client.set_name(0x2222, "Ots0_9_0_9_1");
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(0x2222, &out), 0u);
  EXPECT_TRUE(is_marked(out));
}

TEST_F(look_ups, ifh2devid_without_a_callback_is_not_found) {
  lum_get_ctx()->platform_cbs.ifname_from_ifh = nullptr;
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(0x2222, &out), not_found);
  EXPECT_TRUE(is_marked(out));
}

TEST_F(look_ups, ifh2devid_with_a_failing_callback_is_not_found) {
  script.fail("ifname_from_ifh", 1, 5);
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(0x2222, &out), not_found);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(look_ups, ifh2devid_without_a_context_is_not_found) {
  const context_hidden hidden;
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(0x2222, &out), not_found);
}

TEST_F(look_ups, ifh2devid_traces_a_name_that_does_not_parse) {
  script.fail("imc_ifname_parse", 1, 93);
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(ifh_0, &out), 93u);
  EXPECT_THAT(traces(), Contains(error("parse_if_name error 93\n").of("lum_ports_db")));
  EXPECT_TRUE(is_marked(out));
}

TEST_F(look_ups, ifh2devid_with_a_name_without_an_end_does_not_read_beyond_it) {
  lum_get_ctx()->platform_cbs.ifname_from_ifh = [](uint32_t, char *name) -> cerrno {
    std::memset(name, 'O', LUM_DEVID_NAME_SIZE);
    return 0;
  };
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifh2devid(0x2222, &out), 22u);
}

// ---- Device id by name ----

TEST_F(look_ups, ifname2devid_copies_the_sub_ports_record) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifname2devid("Ots0_3_0_7_0", &out), 0u);
  EXPECT_EQ(out.ifhandle, ifh_0);
}

TEST_F(look_ups, ifname2devid_whose_port_is_not_in_the_database_is_not_found) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifname2devid("Ots0_9_0_9_1", &out), not_found);
  EXPECT_TRUE(is_marked(out));
}

TEST_F(look_ups, ifname2devid_does_not_trace_a_parse_error_itself) {
  script.fail("imc_ifname_parse", 1, 93);
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifname2devid("Ots0_3_0_7_0", &out), 93u);
  ASSERT_EQ(traces().size(), 1u);
  EXPECT_EQ(traces()[0].file, "lum_utils");
}

TEST_F(look_ups, sub_port_that_no_port_has_touches_nothing) {
  lum_device_id_td out = marked();
  EXPECT_NE(lum_ports_db_ifname2devid("Ots0_3_0_7_2", &out), 0u);
  EXPECT_NE(lum_ports_db_ifname2devid("Ots0_3_0_7_4000000000", &out), 0u);
  EXPECT_NE(lum_ports_db_port_handle2devid(handle, 2, &out), 0u);
  EXPECT_NE(lum_ports_db_port_handle2devid(handle, 0xFFFFFFFF, &out), 0u);
  EXPECT_TRUE(is_marked(out));
}

TEST_F(look_ups, name_without_a_sub_port_of_an_unknown_port_is_no_fatal_matter) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_ifname2devid("Ots0_9_0_9", &out), not_found);
}

TEST_F(look_ups, ifname2devid_without_a_sub_port_ends_the_process) {
  lum_device_id_td out = {};
  EXPECT_DEATH(lum_ports_db_ifname2devid("Ots0_3_0_7", &out),
               "lum_ports_db_ifname2devid.*sub_port_exists");
}

TEST_F(look_ups, ifh2devid_without_a_sub_port_ends_the_process) {
  client.set_name(0x2222, "Ots0_3_0_7");
  lum_device_id_td out = {};
  EXPECT_DEATH(lum_ports_db_ifh2devid(0x2222, &out), "lum_ports_db_ifh2devid.*sub_port_exists");
}

// ---- Device id by port handle ----

TEST_F(look_ups, port_handle2devid_copies_the_record) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_port_handle2devid(handle, 0, &out), 0u);
  EXPECT_EQ(out.ifhandle, ifh_0);
  EXPECT_EQ(lum_ports_db_port_handle2devid(handle, 1, &out), 0u);
  EXPECT_EQ(out.ifhandle, ifh_1);
}

TEST_F(look_ups, unknown_port_handle2devid_is_2) {
  lum_device_id_td out = marked();
  EXPECT_EQ(lum_ports_db_port_handle2devid(9, 0, &out), 2u);
  EXPECT_TRUE(is_marked(out));
}

// ---- Port data ----

TEST_F(look_ups, port_info_by_name) {
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_get_port_info("Ots0_3_0_7_0", &out), 0u);
  EXPECT_EQ(out, &data_at(rsip));
  out = nullptr;
  EXPECT_EQ(lum_get_port_info("Ots0_3_0_7", &out), 0u) << "the sub-port is not needed";
  EXPECT_EQ(out, &data_at(rsip));
}

TEST_F(look_ups, port_info_of_an_unknown_port_is_22) {
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_get_port_info("Ots0_9_0_9_0", &out), 22u);
  EXPECT_EQ(out, nullptr);
}

TEST_F(look_ups, port_info_of_a_name_that_does_not_parse_is_the_parsers_code) {
  script.fail("imc_ifname_parse", 1, 93);
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_get_port_info("Ots0_3_0_7_0", &out), 93u);
}

TEST_F(look_ups, s_dev_info_gives_data_and_device_id) {
  lum_port_data *out = nullptr;
  lum_device_id_td device = {};
  EXPECT_EQ(lum_get_s_dev_info(ifh_1, &out, &device), 0u);
  EXPECT_EQ(out, &data_at(rsip));
  EXPECT_EQ(device.ifhandle, ifh_1);
  out = nullptr;
  EXPECT_EQ(lum_get_s_dev_info(ifh_0, &out, nullptr), 0u);
  EXPECT_EQ(out, &data_at(rsip));
}

TEST_F(look_ups, s_dev_info_of_an_unknown_handle_is_2) {
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_get_s_dev_info(0xABC, &out, nullptr), 2u);
  EXPECT_THAT(traces(),
              ElementsAre(error("Failed to get device for interface abc\n").of("lum_ports_db")));
}

TEST_F(look_ups, s_dev_info_of_a_handle_whose_port_is_gone_is_2) {
  client.set_name(0x2222, "Ots0_9_0_9_1");
  lum_port_data *out = nullptr;
  lum_device_id_td device = marked();
  EXPECT_EQ(lum_get_s_dev_info(0x2222, &out, &device), 2u);
  EXPECT_THAT(traces(), Contains(error("Failed to get device for interface 2222\n")));
  EXPECT_TRUE(is_marked(device));
}

TEST_F(look_ups, s_dev_info_needs_the_port_handles_valid_bit) {
  data_at(rsip).device_id[0].valid &= ~LUM_DEVID_PORT_HANDLE;
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_get_s_dev_info(ifh_0, &out, nullptr), 2u);
}

TEST_F(look_ups, s_dev_info_returns_port_infos_result) {
  // The first parse is that of the device id.
  script.fail("imc_ifname_parse", 2, 93);
  lum_port_data *out = nullptr;
  EXPECT_EQ(lum_get_s_dev_info(ifh_0, &out, nullptr), 93u);
}

// ---- rsip by interface handle ----

TEST_F(look_ups, rsip_from_ifh) {
  uint32_t out = 0;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(ifh_1, &out), 0u);
  EXPECT_EQ(out, rsip);
}

TEST_F(look_ups, rsip_from_a_handle_that_only_the_client_knows) {
  client.set_name(0x2222, "Ots1_2_3_4_0");
  uint32_t out = 0;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(0x2222, &out), 0u);
  EXPECT_EQ(out, 0x01020304u);
}

TEST_F(look_ups, rsip_from_a_handle_without_a_name_is_22) {
  uint32_t out = 0x77;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(0x2222, &out), 22u);
  EXPECT_EQ(out, 0x77u);
}

TEST_F(look_ups, rsip_from_ifh_without_callback_or_with_a_failing_one_is_22) {
  uint32_t out = 0;
  script.fail("ifname_from_ifh", 1, 5);
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(0x2222, &out), 22u);
  lum_get_ctx()->platform_cbs.ifname_from_ifh = nullptr;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(0x2222, &out), 22u);
}

TEST_F(look_ups, rsip_is_stored_as_0_when_the_name_does_not_parse) {
  script.fail("imc_ifname_parse", 1, 93);
  uint32_t out = 0x77;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(ifh_0, &out), 93u);
  EXPECT_EQ(out, 0u);
}

TEST_F(look_ups, rsip_holds_the_rack_when_the_slot_does_not_convert) {
  client.set_name(0x2222, "Ots2_3_4_5_0");
  script.fail("nodeid_extract_slot_fields", 1, 94);
  uint32_t out = 0x77;
  EXPECT_EQ(lum_ports_db_get_rsip_from_ifh(0x2222, &out), 94u);
  EXPECT_EQ(out, 0x02000000u);
}

// ---- Names of ports ----

TEST_F(look_ups, intfname_for_port_traces_on_the_debug_channel) {
  char name[LUM_IFNAME_SIZE];
  EXPECT_EQ(lum_get_intfname_for_port(0, 3, 0, 7, 1, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
  EXPECT_THAT(
      traces(),
      ElementsAre(
          info("construct ifname for rsip 0/3/0/7/1\n"),
          debug("If name for port = 7 sub_port_number = 1 is Ots0_3_0_7_1\n").of("lum_ports_db")));
}

}  // namespace

}  // namespace ports_db_lookups_test
