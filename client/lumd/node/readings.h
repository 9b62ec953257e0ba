// The readings of a sub-port: what performance monitoring keeps of them, and their tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "base/module_words.h"
#include "pm_ui.h"
#include "words/readings.h"

namespace lumd {

using lum_client::implausible_words;
using lum_client::is_plausible_power;
using lum_client::power_dbm;
using lum_client::power_microwatt;
using lum_client::reading_value;
using lum_client::supply_volts;
using lum_client::temperature_celsius;

// How far a power that performance monitoring keeps, in tenths of a microwatt, can be told in dBm:
// nothing when it is not known to 1 dB.
std::optional<double> kept_power_dbm(double tenths_of_a_microwatt);

// A number that performance monitoring keeps of a reading.
struct kept_value {
  std::string_view name;  // the reading's, with a letter where the library hands it over again
  std::size_t place = 0;  // of the reading among the readings
  uint32_t (*value)(const pm_ui_optics_record &) = nullptr;
  double per_unit = 1;  // of that value: in the module's unit, of powers in a microwatt

  constexpr const lum_words::reading &word() const { return lum_words::readings.at(place); }
  constexpr bool is_power() const { return word().unit == lum_words::reading_unit::dbm; }
};

// In the order of lum_linux::pm_value.
std::span<const kept_value> kept_values();

// One for each reading, which the library's readings tests can raise, in the order of its test
// offsets.
std::span<const kept_value> monitored_readings();

// The number by which the library knows a readings test, from a reading's name, that number in
// decimal, or "all".
std::optional<uint32_t> readings_test_id(std::string_view text);
bool is_readings_test(uint32_t test_id);

double power_watts(uint16_t reading);

}  // namespace lumd
