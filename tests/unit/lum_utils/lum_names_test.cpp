// Interface names and rsip.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "library.h"
#include "lum_ports_db/lum_ports_db.h"
#include "node_ids.h"

namespace lum_names_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t untouched = 0xDDDDDDDD;

struct outputs {
  uint32_t iftype = untouched;
  uint32_t rack = untouched;
  uint32_t slot = untouched;
  uint32_t instance = untouched;
  uint32_t port = untouched;
  uint32_t sub_port_valid = untouched;
  uint32_t sub_port = untouched;
};

cerrno parse(const char *name, outputs &out) {
  return lum_parse_if_name(name, &out.iftype, &out.rack, &out.slot, &out.instance, &out.port,
                           &out.sub_port_valid, &out.sub_port);
}

class names : public testing::Test {
 protected:
  void SetUp() override { open_traces(); }
};

// ---- Packing ----

TEST(rsip, is_a_pure_shift_and_or) {
  EXPECT_EQ(lum::pack_rsip(1, 2, 3, 4), 0x01020304u);
  EXPECT_EQ(lum::pack_rsip(0, 3, 0, 7), 0x30007u);
}

TEST(rsip, part_above_255_spills_into_the_next_field) {
  EXPECT_EQ(lum::pack_rsip(0, 0, 0, 0x1FF), 0x1FFu);
  EXPECT_EQ(lum::pack_rsip(0, 0x102, 1, 0), 0x1020100u);
  EXPECT_EQ(lum::pack_rsip(0x101, 0, 0, 0), 0x1000000u);
}

// ---- Constructing ----

TEST_F(names, constructing_writes_all_five_numbers) {
  char name[LUM_IFNAME_SIZE];
  EXPECT_EQ(lum_construct_if_name(188, 0, 3, 0, 7, 0, 1, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
  EXPECT_THAT(traces(), ElementsAre(info("construct ifname for rsip 0/3/0/7/1\n").of("lum_utils")));
}

class another_type : public names, public testing::WithParamInterface<uint32_t> {};

TEST_P(another_type, gives_an_empty_name_and_0) {
  char name[LUM_IFNAME_SIZE];
  std::memset(name, 'x', sizeof name);
  EXPECT_EQ(lum_construct_if_name(GetParam(), 0, 3, 0, 7, 0, 1, name), 0u);
  const char zero[LUM_IFNAME_SIZE] = {};
  EXPECT_EQ(std::memcmp(name, zero, sizeof name), 0);
  EXPECT_THAT(traces(), ElementsAre(info("construct ifname for rsip 0/3/0/7/1\n")));
}

// The last two have the low bits of the type in question.
INSTANTIATE_TEST_SUITE_P(each_type, another_type, testing::Values(0u, 187u, 0x100BCu, 0x1BCu));

TEST_F(names, constructing_fills_the_rest_of_the_64_bytes_with_zeros) {
  char name[LUM_IFNAME_SIZE + 1];
  std::memset(name, 'x', sizeof name);
  lum_construct_if_name(188, 1, 2, 3, 4, 0, 0, name);
  const std::string expected = std::string("Ots1_2_3_4_0") + std::string(52, '\0') + "x";
  EXPECT_EQ(std::string(name, sizeof name), expected);
}

TEST_F(names, constructing_ignores_the_sixth_argument) {
  char name[LUM_IFNAME_SIZE];
  lum_construct_if_name(188, 0, 3, 0, 7, 1, 0, name);
  EXPECT_STREQ(name, "Ots0_3_0_7_0");
}

TEST_F(names, constructing_prints_numbers_as_signed) {
  char name[LUM_IFNAME_SIZE];
  lum_construct_if_name(188, 0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, 0, 0, 1, name);
  EXPECT_STREQ(name, "Ots-1_2147483647_-2147483648_0_1");
}

// ---- Parsing ----

TEST_F(names, parsing_and_packing_gives_the_rsip) {
  outputs out;
  EXPECT_EQ(parse("Ots0_3_0_7_1", out), 0u);
  EXPECT_EQ(out.iftype, 188u);
  EXPECT_EQ(lum::pack_rsip(out.rack, out.slot, out.instance, out.port), 0x30007u);
  EXPECT_EQ(out.sub_port, 1u);
  EXPECT_EQ(out.sub_port_valid, 1u);
  EXPECT_THAT(calls(), ElementsAre("imc_ifname_parse(\"Ots0_3_0_7_1\", 0)",
                                   "nodeid_extract_slot_fields(0, 3)", "nodeid_inst_to_SPAid(0)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(names, parsing_a_name_without_a_sub_port_leaves_both_outputs_untouched) {
  outputs out;
  EXPECT_EQ(parse("Ots0_3_0_7", out), 0u);
  EXPECT_EQ(out.port, 7u);
  EXPECT_EQ(out.sub_port_valid, untouched);
  EXPECT_EQ(out.sub_port, untouched);
}

TEST_F(names, parsing_skips_null_outputs) {
  EXPECT_EQ(lum_parse_if_name("Ots0_3_0_7_1", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr),
            0u);
  EXPECT_THAT(calls(), ElementsAre("imc_ifname_parse(\"Ots0_3_0_7_1\", 0)"));
}

TEST_F(names, parsing_with_a_null_slot_does_not_attempt_the_slot_conversion) {
  script.fail("nodeid_extract_slot_fields", 1, 5);
  uint32_t port = untouched;
  EXPECT_EQ(lum_parse_if_name("Ots0_3_0_7_1", nullptr, nullptr, nullptr, nullptr, &port, nullptr,
                              nullptr),
            0u);
  EXPECT_EQ(port, 7u);
  EXPECT_THAT(calls({"nodeid_extract_slot_fields"}), IsEmpty());
}

TEST_F(names, parsing_writes_the_sub_port_only_when_both_outputs_are_wanted) {
  uint32_t valid = untouched;
  uint32_t sub_port = untouched;
  EXPECT_EQ(lum_parse_if_name("Ots0_3_0_7_1", nullptr, nullptr, nullptr, nullptr, nullptr, &valid,
                              nullptr),
            0u);
  EXPECT_EQ(lum_parse_if_name("Ots0_3_0_7_1", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              &sub_port),
            0u);
  EXPECT_EQ(valid, untouched);
  EXPECT_EQ(sub_port, untouched);
}

TEST_F(names, slot_is_the_second_output_of_the_node_identifiers) {
  node_ids.rack_bias = 100;
  node_ids.slot_bias = 10;
  node_ids.instance_bias = 20;
  outputs out;
  EXPECT_EQ(parse("Ots0_3_1_7_1", out), 0u);
  EXPECT_EQ(out.rack, 0u);
  EXPECT_EQ(out.slot, 13u);
  EXPECT_EQ(out.instance, 21u);
  EXPECT_EQ(out.port, 7u);
}

TEST_F(names, parser_failure_is_returned_unchanged_and_traced_with_the_text_of_errno) {
  script.fail_with_errno("imc_ifname_parse", 1, 99, ENOENT);
  outputs out;
  EXPECT_EQ(parse("Ots0_3_0_7_1", out), 99u);
  EXPECT_THAT(traces(),
              ElementsAre(error("Parsing Ifname 'Ots0_3_0_7_1' error: error 2\n").of("lum_utils")));
  EXPECT_THAT(calls(), ElementsAre("imc_ifname_parse(\"Ots0_3_0_7_1\", 0)"));
  EXPECT_EQ(out.rack, untouched);
  EXPECT_EQ(out.slot, untouched);
  EXPECT_EQ(out.instance, untouched);
  EXPECT_EQ(out.port, untouched);
  EXPECT_EQ(out.iftype, untouched);
  EXPECT_EQ(out.sub_port_valid, untouched);
  EXPECT_EQ(out.sub_port, untouched);
}

TEST_F(names, record_that_the_parser_left_empty_is_one_of_zeros_without_a_sub_port) {
  script.fail("imc_ifname_parse", 1, 0);
  outputs out;
  EXPECT_EQ(parse("Ots2_3_1_7_1", out), 0u);
  EXPECT_EQ(out.rack, 0u);
  EXPECT_EQ(out.slot, 0u);
  EXPECT_EQ(out.instance, 0u);
  EXPECT_EQ(out.port, 0u);
  EXPECT_EQ(out.iftype, 0u);
  EXPECT_EQ(out.sub_port_valid, untouched);
  EXPECT_EQ(out.sub_port, untouched);
  EXPECT_THAT(traces(), ElementsAre(error(278, "Ifname 'Ots2_3_1_7_1' wrong type: 0\n")));
}

TEST_F(names, slot_failure_is_returned_unchanged_and_leaves_the_rack_written) {
  script.fail_with_errno("nodeid_extract_slot_fields", 1, 98, EPERM);
  outputs out;
  EXPECT_EQ(parse("Ots2_3_0_7_1", out), 98u);
  EXPECT_THAT(traces(),
              ElementsAre(error("Ifname: 'Ots2_3_0_7_1' parse: extracting slot error error 1\n")));
  EXPECT_EQ(out.rack, 2u);
  EXPECT_EQ(out.slot, untouched);
  EXPECT_EQ(out.instance, untouched);
  EXPECT_EQ(out.port, untouched);
  EXPECT_EQ(out.iftype, untouched);
  EXPECT_EQ(out.sub_port_valid, untouched);
  EXPECT_EQ(out.sub_port, untouched);
  EXPECT_THAT(calls({"nodeid_inst_to_SPAid"}), IsEmpty());
}

TEST_F(names, slot_is_converted_with_the_rack_whether_that_is_wanted_or_not) {
  uint32_t slot = untouched;
  EXPECT_EQ(lum_parse_if_name("Ots2_3_0_7_1", nullptr, nullptr, &slot, nullptr, nullptr, nullptr,
                              nullptr),
            0u);
  EXPECT_EQ(slot, 3u);
  EXPECT_THAT(calls({"nodeid_extract_slot_fields"}),
              ElementsAre("nodeid_extract_slot_fields(2, 3)"));
}

TEST_F(names, another_type_is_reported_through_the_type_and_not_through_the_result) {
  outputs out;
  EXPECT_EQ(parse("Optics0_3_0_7_1", out), 0u);
  EXPECT_EQ(out.iftype, 0u);
  EXPECT_EQ(out.port, 7u);
  EXPECT_EQ(out.sub_port_valid, 1u);
  EXPECT_THAT(traces(), ElementsAre(error("Ifname 'Optics0_3_0_7_1' wrong type: 0\n")));
}

TEST_F(names, another_type_is_traced_when_no_output_is_wanted_too) {
  EXPECT_EQ(lum_parse_if_name("Optics0_3_0_7_1", nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr),
            0u);
  EXPECT_THAT(traces(), ElementsAre(error(278, "Ifname 'Optics0_3_0_7_1' wrong type: 0\n")));
}

TEST_F(names, type_is_compared_with_its_case) {
  outputs out;
  EXPECT_EQ(parse("OTS0_3_0_7_1", out), 0u);
  EXPECT_EQ(out.iftype, 0u);
}

TEST_F(names, a_type_that_contains_ots_counts) {
  outputs out;
  EXPECT_EQ(parse("MyOtsX0_3_0_7_1", out), 0u);
  EXPECT_EQ(out.iftype, 188u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(names, null_name_is_the_parsers_error) {
  outputs out;
  EXPECT_EQ(parse(nullptr, out), static_cast<cerrno>(EINVAL));
  EXPECT_THAT(traces(), ElementsAre(error(276, "Parsing Ifname '' error: error 22\n")));
}

}  // namespace

}  // namespace lum_names_test
