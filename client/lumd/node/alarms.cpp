#include "node/alarms.h"

#include <algorithm>
#include <charconv>

#include "lum.h"

namespace lumd {

using lum_words::alarm;
using lum_words::alarm_id;
using lum_words::alarms;
using lum_words::every_alarm_test_id;

uint64_t bit_of(const alarm &alarm) {
  switch (alarm.id) {
    case alarm_id::flag_12:
      return LUM_ALARM_FLAG_12;
    case alarm_id::flag_10:
      return LUM_ALARM_FLAG_10;
    case alarm_id::flag_13:
      return LUM_ALARM_FLAG_13;
    case alarm_id::flag_49_a:
      return LUM_ALARM_FLAG_49_A;
    case alarm_id::flag_49_b:
      return LUM_ALARM_FLAG_49_B;
    case alarm_id::flag_64_high:
      return LUM_ALARM_FLAG_64_HIGH;
    case alarm_id::flag_64_low:
      return LUM_ALARM_FLAG_64_LOW;
  }
  return 0;
}

std::optional<uint32_t> alarm_test_id(std::string_view text) {
  if (text == lum_words::everything) return every_alarm_test_id;
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool is_number = error == std::errc() && end == text.data() + text.size();
  if (is_number && number == every_alarm_test_id) return number;
  const auto found = std::find_if(alarms.begin(), alarms.end(), [&](const alarm &kind) {
    return is_number ? kind.test_id == number : kind.name == text;
  });
  if (found == alarms.end()) return std::nullopt;
  return found->test_id;
}

}  // namespace lumd
