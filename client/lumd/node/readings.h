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

// A reading that performance monitoring keeps, and that the library's readings tests can raise.
struct monitored_reading {
  std::size_t place = 0;  // among the readings
  uint32_t (*value)(const pm_ui_optics_record &) = nullptr;
  double per_unit = 1;  // of that value: in the module's unit, of powers in a microwatt

  constexpr const lum_words::reading &word() const { return lum_words::readings.at(place); }
};

// In the order of the library's test offsets.
std::span<const monitored_reading> monitored_readings();

// The number by which the library knows a readings test, from a reading's name, that number in
// decimal, or "all".
std::optional<uint32_t> readings_test_id(std::string_view text);
bool is_readings_test(uint32_t test_id);

double power_watts(uint16_t reading);

}  // namespace lumd
