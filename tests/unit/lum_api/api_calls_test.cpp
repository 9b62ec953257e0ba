// Calls that only pass on what they are given.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "controllers.h"
#include "one_port.h"

namespace api_calls_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const area lum_api = {"lum_api"};

class api_calls : public created_ports {};

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

TEST_F(api_calls, settings_are_passed_on_unchanged) {
  data_at(first).port_cfg[0].mode = 1;
  lum_hw_info_in in = {};
  put_word<uint32_t>(in, LUM_HW_IN_MODE, 3);
  const uint32_t handle = 0x1002;
  const uint64_t bits = 0x40000;
  EXPECT_EQ(lum_set_hw_info_by_ifh(1, &handle, &in, &bits), 0u);
  EXPECT_EQ(data_at(first).port_cfg[1].mode, 3u);
  EXPECT_EQ(data_at(first).port_cfg[0].mode, 1u);
  EXPECT_EQ(data_at(first).port_cfg[1].changed_bits & 0x40000, 0x40000u);
}

TEST_F(api_calls, readings_are_written_into_the_callers_record) {
  lum_hw_info_out out = {};
  const uint32_t handle = 0x1002;
  EXPECT_EQ(lum_get_hw_info_by_ifh(1, &handle, &out), 0u);
  EXPECT_EQ(word_at<uint32_t>(out, LUM_HW_OUT_KIND), 83u);
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

}  // namespace

}  // namespace api_calls_test
