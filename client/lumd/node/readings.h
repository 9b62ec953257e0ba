// What a module's words mean.
#pragma once

#include <cstdint>

namespace lumd {

// Of the five readings of a sub-port the first three are powers.
constexpr int powers = 3;

double power_dbm(uint16_t reading);

// In tenths of a microwatt, cut as the library reports them.
double power_microwatt(uint16_t reading);

// Readings 3 and 4.
double reading_value(uint16_t reading);

double temperature_celsius(int16_t word);
double supply_volts(uint16_t word);

}  // namespace lumd
