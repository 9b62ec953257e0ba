// What a module can have measured. A value outside is shown all the same, and marked.
#pragma once

namespace lum_words {

struct plausible_range {
  double lowest;
  double highest;

  constexpr bool holds(double value) const { return value >= lowest && value <= highest; }
};

inline constexpr plausible_range plausible_power_dbm = {-60, 35};
inline constexpr plausible_range plausible_temperature_c = {-60, 125};
inline constexpr plausible_range plausible_supply_v = {0, 6};

}  // namespace lum_words
