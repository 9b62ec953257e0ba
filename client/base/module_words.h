// What a module's words mean: the readings of a sub-port, and the module's own temperature and
// supply.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace lum_client {

double power_dbm(uint16_t reading);

// In microwatts, cut to tenths as the library reports them.
double power_microwatt(uint16_t reading);

// Of a reading in the module's unit.
double reading_value(uint16_t reading);

double temperature_celsius(int16_t word);
double supply_volts(uint16_t word);

// What a module can have measured, as words/plausible.h has it; of its own two words the names, as
// the API has them, of those that it cannot.
bool is_plausible_power(uint16_t reading);
std::vector<std::string_view> implausible_words(int16_t temperature, uint16_t supply);

}  // namespace lum_client
