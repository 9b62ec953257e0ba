// The alarms of a sub-port, and the numbers by which the library's alarm tests know them.
// docs/alarms.md tells where each comes from.
#pragma once

#include <cstdint>

#include "words/names.h"

namespace lum_words {

enum class alarm_id { flag_12, flag_10, flag_13, flag_49_a, flag_49_b, flag_64_high, flag_64_low };

struct alarm {
  alarm_id id;
  std::string_view name;
  uint32_t test_id;
  bool sub_port_1_only;
  std::string_view source;  // for people
};

// In the order of the library's bits.
inline constexpr std::array<alarm, 7> alarms = {{
    {alarm_id::flag_12, "flag-12", 12, false, "lower-page byte 12; also turns the LED to fault"},
    {alarm_id::flag_10, "flag-10", 10, false, "lower-page byte 10; also turns the LED to fault"},
    {alarm_id::flag_13, "flag-13", 17, false, "lower-page byte 13; also turns the LED to fault"},
    {alarm_id::flag_49_a, "flag-49-a", 20, true, "lower-page byte 49, any bit"},
    {alarm_id::flag_49_b, "flag-49-b", 21, true, "lower-page byte 49, any bit"},
    {alarm_id::flag_64_high, "flag-64-high", 18, false,
     "lower-page byte 64, the higher bit of the sub-port"},
    {alarm_id::flag_64_low, "flag-64-low", 19, false,
     "lower-page byte 64, the lower bit of the sub-port"},
}};

// The alarm test that means every alarm of the sub-port.
inline constexpr uint32_t every_alarm_test_id = 22;

}  // namespace lum_words
