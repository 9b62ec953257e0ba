// The pair of thresholds, moved so that the upper stays above the lower.
#include <gmock/gmock.h>

#include "provisioning_fixture.h"

namespace provisioning_thresholds_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;

namespace {

constexpr const char *area = "lum_controller_interface";

TEST_F(provisioning, raising_a_sub_port_0_threshold_from_100_to_20_writes_300_first_then_200) {
  module().put_be16(2, 146, 100);
  cfg(0).threshold = 20;
  EXPECT_EQ(provision(0, bit_threshold), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(read_block(2, 146, 2), wrote(2, 144, 0x01), wrote(2, 145, 0x2C),
                          wrote(2, 146, 0x00), wrote(2, 147, 0xC8)));
  EXPECT_EQ(module().be16_at(2, 144), 300);
  EXPECT_EQ(module().be16_at(2, 146), 200);
}

TEST_F(provisioning, lowering_a_sub_port_0_threshold_from_100_to_5_writes_50_first_then_150) {
  module().put_be16(2, 146, 100);
  cfg(0).threshold = 5;
  EXPECT_EQ(provision(0, bit_threshold), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(read_block(2, 146, 2), wrote(2, 146, 0x00), wrote(2, 147, 0x32),
                          wrote(2, 144, 0x00), wrote(2, 145, 0x96)));
}

TEST_F(provisioning, raising_a_sub_port_1_threshold_writes_152_first) {
  module().put_be16(2, 154, 100);
  cfg(1).threshold = 20;
  EXPECT_EQ(provision(1, bit_threshold), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(read_block(2, 154, 2), wrote(2, 152, 0x01), wrote(2, 153, 0x2C),
                          wrote(2, 154, 0x00), wrote(2, 155, 0xC8)));
}

TEST_F(provisioning, lowering_a_sub_port_1_threshold_writes_154_first) {
  module().put_be16(2, 154, 100);
  cfg(1).threshold = 5;
  EXPECT_EQ(provision(1, bit_threshold), 0u);
  EXPECT_THAT(transfers(),
              ElementsAre(read_block(2, 154, 2), wrote(2, 154, 0x00), wrote(2, 155, 0x32),
                          wrote(2, 152, 0x00), wrote(2, 153, 0x96)));
}

TEST_F(provisioning, equal_threshold_counts_as_not_raised) {
  module().put_be16(2, 146, 200);
  cfg(0).threshold = 20;
  provision(0, bit_threshold);
  EXPECT_EQ(transfers()[1], wrote(2, 146, 0x00));
  EXPECT_THAT(traces(), Contains(info(128,
                                      "subport 0 RSIP 0/3/1/7, current th c8 is_th_raised "
                                      "0\n")
                                     .of(area)));
}

TEST_F(provisioning, current_threshold_is_a_signed_16_bit_number) {
  module().put_be16(2, 146, 0xFFFF);
  cfg(0).threshold = 0;
  provision(0, bit_threshold);
  EXPECT_EQ(transfers()[1], wrote(2, 144, 0x00)) << "0 is above -1";
  EXPECT_THAT(traces(), Contains(info(128,
                                      "subport 0 RSIP 0/3/1/7, current th ffffffff "
                                      "is_th_raised 1\n")));
}

TEST_F(provisioning, threshold_beyond_16_bits_is_compared_whole_and_written_cut) {
  module().put_be16(2, 146, 0x7FFF);
  cfg(0).threshold = 6554;  // 65540: new 0x10004, upper 0x10068
  provision(0, bit_threshold);
  EXPECT_THAT(transfers(),
              ElementsAre(read_block(2, 146, 2), wrote(2, 144, 0x00), wrote(2, 145, 0x68),
                          wrote(2, 146, 0x00), wrote(2, 147, 0x04)));
}

TEST_F(provisioning, threshold_that_turns_negative_counts_as_lowered) {
  cfg(0).threshold = 0x10000000;  // times 10 is 0xA0000000
  provision(0, bit_threshold);
  EXPECT_EQ(transfers()[1], wrote(2, 146, 0x00));
}

TEST_F(provisioning, failed_read_of_the_current_threshold_counts_as_0) {
  module().put_be16(2, 146, 500);
  script.fail_always("i2c_read_block", 5);
  cfg(0).threshold = 1;
  EXPECT_EQ(provision(0, bit_threshold), 0u);
  EXPECT_EQ(module().be16_at(2, 146), 10);
  EXPECT_THAT(traces(), Contains(info(128,
                                      "subport 0 RSIP 0/3/1/7, current th 0 is_th_raised "
                                      "1\n")));
}

cerrno leave_500_and_fail(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, int32_t,
                          uint8_t *buffer) {
  buffer[0] = 0x01;
  buffer[1] = 0xF4;
  return 5;
}

TEST_F(provisioning, failed_read_that_left_bytes_counts_as_them) {
  lum_get_ctx()->platform_cbs.i2c_read_block = leave_500_and_fail;
  cfg(0).threshold = 20;
  EXPECT_EQ(provision(0, bit_threshold), 0u);
  EXPECT_THAT(traces(), Contains(info(128,
                                      "subport 0 RSIP 0/3/1/7, current th 1f4 is_th_raised "
                                      "0\n")));
  EXPECT_THAT(transfers(), ElementsAre(wrote(2, 146, 0x00), wrote(2, 147, 0xC8),
                                       wrote(2, 144, 0x01), wrote(2, 145, 0x2C)));
}

TEST_F(provisioning, thresholds_stay_on_page_2_on_the_newer_memory_map) {
  port().new_memmap = 1;
  cfg(1).threshold = 20;
  provision(1, bit_threshold);
  EXPECT_THAT(transfers(), ElementsAre(read_block(2, 154, 2), wrote(2, 152, 1), wrote(2, 153, 0x2C),
                                       wrote(2, 154, 0), wrote(2, 155, 0xC8)));
}

// After the read and the first word, with the second word still to come.
TEST_F(provisioning, upper_threshold_is_above_the_lower_between_the_two_words) {
  module().put_be16(2, 144, 100);
  int transfer = 0;
  modules.before_transfer = [&] {
    if (++transfer != 4) return;
    EXPECT_GT(module().be16_at(2, 144), module().be16_at(2, 146));
  };
  for (const uint32_t threshold : {20u, 5u, 90u, 0u, 89u, 88u, 3000u}) {
    transfer = 0;
    cfg(0).threshold = threshold;
    provision(0, bit_threshold);
    EXPECT_EQ(transfer, 5);
    EXPECT_EQ(module().be16_at(2, 144), threshold * 10 + 100);
    EXPECT_EQ(module().be16_at(2, 146), threshold * 10);
  }
}

TEST_F(provisioning, threshold_of_sub_port_1_is_traced_with_its_number) {
  module().put_be16(2, 154, 0x0ABC);
  provision(1, bit_threshold);
  EXPECT_THAT(traces_of(area),
              ElementsAre(info(125, "subport 1 RSIP 0/3/1/7\n"),
                          info(126, "subport 1 changed bits: [0x2] RSIP 0/3/1/7\n"),
                          info("subport 1 RSIP 0/3/1/7, current th abc is_th_raised 0\n")));
}

}  // namespace

}  // namespace provisioning_thresholds_test
