// What the module's power readings mean.
#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "lum_controller_interface/lum_controller_interface.h"

namespace power_test {

using testing::IsEmpty;

namespace {

TEST(power, reading_0_converts_to_10000_and_1000_to_100000) {
  EXPECT_EQ(lum::power_of(0x0000), 10000u);
  EXPECT_EQ(lum::power_of(0x03E8), 100000u);
}

TEST(power, reading_0x1000_converts_as_minus_61441) { EXPECT_EQ(lum::power_of(0x1000), 0u); }

TEST(power, bit_12_not_bit_15_makes_a_reading_negative) {
  EXPECT_EQ(lum::power_of(0xFFFF), 9954u) << "-2";
  EXPECT_EQ(lum::power_of(0xFC18), 997u) << "-1001";
  EXPECT_EQ(lum::power_of(0x8000), 4294967295u) << "bit 12 clear";
}

TEST(power, values_that_do_not_fit_clamp_to_4294967295) {
  EXPECT_EQ(lum::power_of(4095), 124451400u) << "the largest that fits";
  EXPECT_EQ(lum::power_of(0x2000), 4294967295u);
  EXPECT_EQ(lum::power_of(0xEFFF), 4294967295u) << "beyond single precision";
}

// The same in long double, by the natural exponential; the rounding to single precision where the
// conversion asks for it.
uint32_t expected_power(uint32_t reading) {
  const long value =
      (reading & 0x1000) != 0 ? static_cast<long>(reading) - 65537L : static_cast<long>(reading);
  const auto in_bels = static_cast<float>(value) / 1000.0F;
  const long double power = expl(static_cast<long double>(in_bels) * logl(10.0L)) * 10000.0L;
  if (power >= 4294967296.0L) return 4294967295u;
  const auto rounded = static_cast<float>(power);
  return rounded > 0.00001F ? static_cast<uint32_t>(rounded) : 0;
}

TEST(power, all_65536_readings_agree_with_an_independent_computation) {
  std::vector<uint32_t> wrong;
  for (uint32_t reading = 0; reading <= 0xFFFF; ++reading) {
    if (lum::power_of(static_cast<uint16_t>(reading)) != expected_power(reading)) {
      wrong.push_back(reading);
    }
  }
  EXPECT_THAT(wrong, IsEmpty());
}

}  // namespace

}  // namespace power_test
