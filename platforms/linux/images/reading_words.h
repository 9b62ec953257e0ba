// How readings become words and words readings.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace lum_linux {

// Beyond these, bit 12 of a power's word no longer tells the sign.
inline constexpr double min_dbm = -40.97;
inline constexpr double max_dbm = 40.95;
inline constexpr double max_word = 65535;
inline constexpr double min_celsius = -128;
inline constexpr double max_celsius = 127.99;
inline constexpr double max_volts = 6.5535;

inline constexpr double steps_per_degree = 256;
inline constexpr double steps_per_volt = 10000;
inline constexpr double steps_of_tenths = 10;
inline constexpr double steps_per_dbm = 100;
// What negative powers are off the two's complement, and its length.
inline constexpr long power_wrap = 0x10001;

inline uint16_t word(double value) { return static_cast<uint16_t>(std::lround(value)); }

// A word below zero is written in two's complement.
inline uint16_t signed_word(double value) {
  return static_cast<uint16_t>(static_cast<int32_t>(std::lround(value)));
}

// The word of a power: hundredths of a dBm. Below zero it is one more than the two's complement,
// which is how these modules count; -0.01 dBm has no word of its own and becomes -0.02 dBm.
inline uint16_t power_word(double dbm) {
  const long hundredths = std::lround(dbm * steps_per_dbm);
  if (hundredths >= 0) return static_cast<uint16_t>(hundredths);
  return static_cast<uint16_t>(std::min(hundredths + power_wrap, 0xFFFFl));
}

inline double power_of(uint16_t word) {
  constexpr uint16_t sign_bit = 1 << 12;
  const long hundredths = (word & sign_bit) != 0 ? word - power_wrap : word;
  return static_cast<double>(hundredths) / steps_per_dbm;
}

}  // namespace lum_linux
