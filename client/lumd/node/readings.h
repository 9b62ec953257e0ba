// What a module's words mean: the readings of a sub-port, and the module's own temperature and
// supply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "pm_ui.h"

namespace lumd {

enum class reading_unit {
  dbm,     // an optical power
  module,  // whatever the module counts in
};

// A reading that performance monitoring keeps, and that the library's readings tests can raise.
struct monitored_reading {
  std::string_view name;  // in performance monitoring
  uint32_t (*value)(const pm_ui_optics_record &) = nullptr;
  std::string_view test_name;  // for people
  uint32_t test_id = 0;        // by which the library knows the test
  std::size_t offset = 0;      // of the test, among the library's test offsets
};

struct reading {
  std::size_t place = 0;  // among the library's readings
  reading_unit unit = reading_unit::dbm;
  std::optional<monitored_reading> monitored = {};
};

// In the order of their places.
std::span<const reading> readings();

// In the order of their test offsets.
std::span<const monitored_reading> monitored_readings();

// The number by which the library knows a readings test, from a reading's test name, that number in
// decimal, or "all".
std::optional<uint32_t> readings_test_id(std::string_view text);
bool is_readings_test(uint32_t test_id);

double power_dbm(uint16_t reading);

// In tenths of a microwatt, cut as the library reports them.
double power_microwatt(uint16_t reading);

// Of a reading in the module's unit.
double reading_value(uint16_t reading);

double temperature_celsius(int16_t word);
double supply_volts(uint16_t word);

}  // namespace lumd
