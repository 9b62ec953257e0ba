#include "node/readings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>

#include "lum.h"
#include "lum_linux/performance.h"

namespace lumd {
namespace {

using record = pm_ui_optics_record;

using lum_words::every_readings_test_id;
using lum_words::readings;
static_assert(readings.size() == std::extent_v<decltype(lum_dom_area::readings)>,
              "words/readings.h has a row for each of the library's readings");

constexpr std::array<kept_value, lum_linux::pm_value_count> kept = {{
    {"reading-3", 3, [](const record &r) { return r.reading_3; }, 1},
    {"reading-4-a", 4, [](const record &r) { return r.reading_4[0]; }, 10},
    {"reading-4-b", 4, [](const record &r) { return r.reading_4[1]; }, 10},
    {"reading-4-c", 4, [](const record &r) { return r.reading_4[2]; }, 10},
    {"power-1", 1, [](const record &r) { return r.power_1; }, 10},
    {"power-0", 0, [](const record &r) { return r.power_0; }, 10},
}};
static_assert(std::all_of(kept.begin(), kept.end(),
                          [](const kept_value &one) {
                            return one.value != nullptr && is_raisable(one.word()) &&
                                   one.name.starts_with(one.word().name);
                          }),
              "each has its place in the record and the name of its reading");

constexpr auto monitored = [] {
  std::array<kept_value, lum_words::raisable_readings.size()> found;
  std::unique_copy(kept.begin(), kept.end(), found.begin(),
                   [](const kept_value &a, const kept_value &b) { return a.place == b.place; });
  return found;
}();
static_assert(monitored.size() == std::extent_v<decltype(lum_test_injection::pm_test_offsets)> &&
                  monitored.back().value != nullptr,
              "each reading that can be raised is kept");

double rounded(double value, double per_unit) { return std::round(value * per_unit) / per_unit; }

}  // namespace

std::span<const kept_value> kept_values() { return kept; }

std::span<const kept_value> monitored_readings() { return monitored; }

std::optional<uint32_t> readings_test_id(std::string_view text) {
  const auto is_meant = [text](std::string_view name, uint32_t id) {
    return text == name || text == fmt::format("{}", id);
  };
  for (const lum_words::reading &one : lum_words::raisable_readings) {
    if (is_meant(one.name, one.test_id)) return one.test_id;
  }
  if (is_meant(lum_words::everything, every_readings_test_id)) return every_readings_test_id;
  return std::nullopt;
}

bool is_readings_test(uint32_t test_id) {
  return test_id >= lum_words::first_readings_test_id && test_id <= every_readings_test_id;
}

double power_watts(uint16_t reading) { return std::pow(10.0, power_dbm(reading) / 10) / 1000; }

// Half a tenth more or less is 1 dB at 2.2 of them, and 0.1 dB at 22.
std::optional<double> kept_power_dbm(double tenths_of_a_microwatt) {
  if (tenths_of_a_microwatt < 2.2) return std::nullopt;
  return rounded(10 * std::log10(tenths_of_a_microwatt / 10000),
                 tenths_of_a_microwatt < 22 ? 1 : 10);
}

}  // namespace lumd
