#include "node/readings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace lumd {
namespace {

using record = pm_ui_optics_record;

constexpr std::array<reading, 5> all = {{
    {0,
     reading_unit::dbm,
     {{"power_0", [](const record &r) { return r.power_0; }, "power-0", 3, 3}}},
    {1,
     reading_unit::dbm,
     {{"power_1", [](const record &r) { return r.power_1; }, "power-1", 2, 2}}},
    {2, reading_unit::dbm},
    {3,
     reading_unit::module,
     {{"reading_3", [](const record &r) { return r.reading_3; }, "reading-3", 1, 0}}},
    {4,
     reading_unit::module,
     {{"reading_4", [](const record &r) { return r.reading_4[0]; }, "reading-4", 4, 1}}},
}};

constexpr std::string_view every_test_name = "all";
constexpr uint32_t every_test_id = 5;

double rounded(double value, double per_unit) { return std::round(value * per_unit) / per_unit; }

// The modules count powers below zero from 0x10001 down, and bit 12 tells them from those above.
int hundredths_of_dbm(uint16_t reading) {
  const bool below_zero = (reading & 0x1000) != 0;
  return below_zero ? reading - 0x10001 : reading;
}

std::vector<monitored_reading> sort_monitored() {
  std::vector<monitored_reading> found;
  for (const reading &one : all) {
    if (one.monitored) found.push_back(*one.monitored);
  }
  std::sort(found.begin(), found.end(),
            [](const auto &a, const auto &b) { return a.offset < b.offset; });
  return found;
}

}  // namespace

std::span<const reading> readings() { return all; }

std::span<const monitored_reading> monitored_readings() {
  static const std::vector<monitored_reading> sorted = sort_monitored();
  return sorted;
}

std::optional<uint32_t> readings_test_id(std::string_view text) {
  const auto is_meant = [text](std::string_view name, uint32_t id) {
    return text == name || text == fmt::format("{}", id);
  };
  for (const monitored_reading &one : monitored_readings()) {
    if (is_meant(one.test_name, one.test_id)) return one.test_id;
  }
  if (is_meant(every_test_name, every_test_id)) return every_test_id;
  return std::nullopt;
}

bool is_readings_test(uint32_t test_id) {
  const auto tests = monitored_readings();
  return test_id == every_test_id ||
         std::any_of(tests.begin(), tests.end(),
                     [test_id](const auto &one) { return one.test_id == test_id; });
}

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
