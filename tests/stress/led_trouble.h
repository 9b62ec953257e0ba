// Stands between the library and the LEDs, which may be slow or fail, and remembers what each was
// asked for last.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "lum.h"

namespace stress {

// The callbacks to give to the library, for node_shape::between.
lum_platform_cbs troubled_leds(const lum_platform_cbs &platform);

// Each setting takes up to `longest` before and after it reaches the LED, and `failing_percent` of
// them reach it not at all.
void trouble_leds(std::chrono::microseconds longest, uint32_t failing_percent);

// The state that a port's LED was last asked for, in the order in which they would reach it.
std::optional<uint32_t> led_asked_for(uint32_t rsip);

}  // namespace stress
