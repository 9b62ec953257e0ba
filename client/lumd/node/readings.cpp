#include "node/readings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <type_traits>

#include "lum.h"
#include "lum_linux/performance.h"
#include "words/plausible.h"

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

// The modules count powers below zero from 0x10001 down, and bit 12 tells them from those above.
int hundredths_of_dbm(uint16_t reading) {
  const bool below_zero = (reading & 0x1000) != 0;
  return below_zero ? reading - 0x10001 : reading;
}

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

double power_dbm(uint16_t reading) { return hundredths_of_dbm(reading) / 100.0; }

double power_microwatt(uint16_t reading) {
  const float exponent = static_cast<float>(hundredths_of_dbm(reading)) / 1000.0F;
  const auto tenths = static_cast<float>(std::pow(10.0, static_cast<double>(exponent)) * 10000.0);
  constexpr double greatest = std::numeric_limits<uint32_t>::max();  // that the library reports
  return std::min(std::floor(static_cast<double>(tenths)), greatest) / 10.0;
}

double power_watts(uint16_t reading) { return std::pow(10.0, power_dbm(reading) / 10) / 1000; }

// Half a tenth more or less is 1 dB at 2.2 of them, and 0.1 dB at 22.
std::optional<double> kept_power_dbm(double tenths_of_a_microwatt) {
  if (tenths_of_a_microwatt < 2.2) return std::nullopt;
  return rounded(10 * std::log10(tenths_of_a_microwatt / 10000),
                 tenths_of_a_microwatt < 22 ? 1 : 10);
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

}  // namespace lumd
