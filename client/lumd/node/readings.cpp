#include "readings.h"

#include <cmath>

namespace lumd {
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
  return std::floor(static_cast<double>(tenths)) / 10.0;
}

double reading_value(uint16_t reading) { return reading / 10.0; }

double temperature_celsius(int16_t word) { return rounded(word / 256.0, 1000); }

double supply_volts(uint16_t word) { return rounded(word / 10000.0, 10000); }

}  // namespace lumd
