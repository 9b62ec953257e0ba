#include "lum_linux/names.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "imc.h"

TEST(interface_names, with_a_sub_port) {
  imc_ifname_info info = {};
  ASSERT_EQ(imc_ifname_parse("Ots0_3_0_7_1", 0, &info), 0u);
  EXPECT_STREQ(info.type, "Ots");
  EXPECT_EQ(info.rack, 0u);
  EXPECT_EQ(info.slot, 3u);
  EXPECT_EQ(info.instance, 0u);
  EXPECT_EQ(info.port, 7u);
  EXPECT_EQ(info.sub_port_valid, 1u);
  EXPECT_EQ(info.sub_port, 1u);
}

TEST(interface_names, without_a_sub_port) {
  imc_ifname_info info = {};
  ASSERT_EQ(imc_ifname_parse("Och1_2_3_4294967295", 0, &info), 0u);
  EXPECT_STREQ(info.type, "Och");
  EXPECT_EQ(info.rack, 1u);
  EXPECT_EQ(info.port, 4294967295u);
  EXPECT_EQ(info.sub_port_valid, 0u);
  EXPECT_EQ(info.sub_port, 0u);
}

TEST(interface_names, anything_else_is_refused_with_errno_set) {
  const std::string bad[] = {
      "",
      "Ots",
      "Ots0",
      "Ots0_1_2",
      "0_1_2_3",
      "Ots0_1_2_3_",
      "Ots0_1_2_3_4_5",
      "Ots0_1_2_3_4x",
      "Ots0_1_2_3 ",
      " Ots0_1_2_3",
      "Ots_0_1_2_3",
      "Ots0__1_2_3",
      "Ots-1_1_2_3",
      "Ots+1_1_2_3",
      "Ots0_1_2_0x3",
      "Ots0_1_2_4294967296",
      "Ots0/1/2/3",
      "O1s0_1_2_3",
      "Ots0_1_2_3\xff",
      std::string(32, 'a') + "0_1_2_3",
      "Ots0_1_2_" + std::string(60, '0'),
  };
  for (const std::string &name : bad) {
    imc_ifname_info info = {};
    errno = 0;
    EXPECT_EQ(imc_ifname_parse(name.c_str(), 0, &info), 22u) << name;
    EXPECT_EQ(errno, 22) << name;
    EXPECT_EQ(info.type[0], '\0') << name;
    EXPECT_EQ(info.port, 0u) << name;
  }
}

TEST(interface_names, null_and_flags_are_refused) {
  imc_ifname_info info = {};
  errno = 0;
  EXPECT_EQ(imc_ifname_parse(nullptr, 0, &info), 22u);
  EXPECT_EQ(errno, 22);
  EXPECT_EQ(imc_ifname_parse("Ots0_1_2_3", 0, nullptr), 22u);
  EXPECT_EQ(imc_ifname_parse("Ots0_1_2_3", 1, &info), 22u);
}

TEST(interface_names, of_up_to_63_characters_even_without_an_end) {
  imc_ifname_info info = {};
  const std::string longest = "Ots0_1_2_" + std::string(53, '0') + "7";
  ASSERT_EQ(longest.size(), 63u);
  EXPECT_EQ(imc_ifname_parse(longest.c_str(), 0, &info), 0u);
  EXPECT_EQ(info.port, 7u);
  char open_ended[64];
  for (char &c : open_ended) c = 'a';
  EXPECT_EQ(imc_ifname_parse(open_ended, 0, &info), 22u);
}

TEST(node_ids, are_plain_numbers) {
  uint32_t rack = 9, slot = 9, instance = 9;
  EXPECT_EQ(nodeid_extract_slot_fields(1, 3, &rack, &slot), 0u);
  EXPECT_EQ(rack, 1u);
  EXPECT_EQ(slot, 3u);
  nodeid_inst_to_SPAid(2, &instance);
  EXPECT_EQ(instance, 2u);
  nodeid_inst_to_SPAid(2, nullptr);
  errno = 0;
  EXPECT_EQ(nodeid_extract_slot_fields(1, 3, nullptr, &slot), 22u);
  EXPECT_EQ(errno, 22);
  EXPECT_EQ(nodeid_extract_slot_fields(1, 3, &rack, nullptr), 22u);
}

TEST(interface_names, are_parsed_for_the_platform_s_owner_too) {
  const std::string name = "Och1_2_3_4_5 and more";
  const auto parsed = lum_linux::parse_interface_name(std::string_view(name).substr(0, 12));
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->type, "Och");
  EXPECT_EQ(parsed->rack, 1u);
  EXPECT_EQ(parsed->slot, 2u);
  EXPECT_EQ(parsed->instance, 3u);
  EXPECT_EQ(parsed->port, 4u);
  EXPECT_EQ(parsed->sub_port, 5u);
  EXPECT_FALSE(lum_linux::parse_interface_name(name));
  EXPECT_FALSE(lum_linux::parse_interface_name("Ots0_1_2_3")->sub_port);
}

TEST(interface_names, of_a_port_are_made_of_its_position) {
  EXPECT_EQ(lum_linux::ots_interface_name(0x00030007, 1), "Ots0_3_0_7_1");
  EXPECT_EQ(lum_linux::ots_interface_name(0xFF0F03FE, 0), "Ots255_15_3_254_0");
}
