// The alarms of a sub-port as the library and its alarm tests know them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "words/alarms.h"

namespace lumd {

// The bit that the alarm is in the library's bitmap.
uint64_t bit_of(const lum_words::alarm &alarm);

// Whether sub-port 0 or 1 can have the alarm.
constexpr bool belongs_to(const lum_words::alarm &alarm, std::size_t sub_port) {
  return sub_port == 1 || !alarm.sub_port_1_only;
}

// The number by which the alarm tests know an alarm, from its name, that number in decimal, or
// "all".
std::optional<uint32_t> alarm_test_id(std::string_view text);

}  // namespace lumd
