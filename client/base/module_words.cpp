#include "base/module_words.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "words/plausible.h"

namespace lum_client {
namespace {

double rounded(double value, double per_unit) { return std::round(value * per_unit) / per_unit; }

// The modules count powers below zero from 0x10001 down, and bit 12 tells them from those above.
int hundredths_of_dbm(uint16_t reading) {
  const bool below_zero = (reading & 0x1000) != 0;
  return below_zero ? reading - 0x10001 : reading;
}

}  // namespace

double power_dbm(uint16_t reading) { return hundredths_of_dbm(reading) / 100.0; }

double power_microwatt(uint16_t reading) {
  const float exponent = static_cast<float>(hundredths_of_dbm(reading)) / 1000.0F;
  const auto tenths = static_cast<float>(std::pow(10.0, static_cast<double>(exponent)) * 10000.0);
  constexpr double greatest = std::numeric_limits<uint32_t>::max();  // that the library reports
  return std::min(std::floor(static_cast<double>(tenths)), greatest) / 10.0;
}

double reading_value(uint16_t reading) { return reading / 10.0; }

double temperature_celsius(int16_t word) { return rounded(word / 256.0, 1000); }

double supply_volts(uint16_t word) { return rounded(word / 10000.0, 10000); }

bool is_plausible_power(uint16_t reading) {
  return lum_words::plausible_power_dbm.holds(power_dbm(reading));
}

std::vector<std::string_view> implausible_words(int16_t temperature, uint16_t supply) {
  std::vector<std::string_view> names;
  if (!lum_words::plausible_temperature_c.holds(temperature_celsius(temperature))) {
    names.push_back("temperature_c");
  }
  if (!lum_words::plausible_supply_v.holds(supply_volts(supply))) names.push_back("supply_v");
  return names;
}

}  // namespace lum_client
