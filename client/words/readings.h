// The readings of a sub-port, in the library's order.
#pragma once

#include <cstdint>

#include "words/names.h"

namespace lum_words {

enum class reading_unit {
  dbm,     // an optical power
  module,  // whatever the module counts in
};

struct reading {
  std::string_view name;
  std::string_view title;  // of its column
  reading_unit unit = reading_unit::dbm;
  // By which the library knows the test that raises it; 0: it is neither raised nor monitored.
  uint32_t test_id = 0;
};

inline constexpr auto readings = std::to_array<reading>({
    {"power-0", "P0 dBm", reading_unit::dbm, 3},
    {"power-1", "P1 dBm", reading_unit::dbm, 2},
    {"power-2", "P2 dBm", reading_unit::dbm},
    {"reading-3", "R3", reading_unit::module, 1},
    {"reading-4", "R4", reading_unit::module, 4},
});
// Texts speak of those in one unit as of a range.
static_assert(std::is_sorted(readings.begin(), readings.end(),
                             [](const reading &a, const reading &b) { return a.unit < b.unit; }));

constexpr bool is_raisable(const reading &one) { return one.test_id != 0; }

// In the order of their tests.
inline constexpr auto raisable_readings = [] {
  std::array<reading, std::count_if(readings.begin(), readings.end(), is_raisable)> found;
  std::copy_if(readings.begin(), readings.end(), found.begin(), is_raisable);
  std::sort(found.begin(), found.end(),
            [](const reading &a, const reading &b) { return a.test_id < b.test_id; });
  return found;
}();

// The test that raises all of them, and the last of the tests.
inline constexpr uint32_t every_readings_test_id = 5;
inline constexpr uint32_t first_readings_test_id = raisable_readings.front().test_id;
static_assert(first_readings_test_id + raisable_readings.size() == every_readings_test_id &&
                  raisable_readings.back().test_id < every_readings_test_id,
              "the tests have numbers one after the other");

}  // namespace lum_words
