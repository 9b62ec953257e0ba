#include "node/alarms.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace lumd {
namespace {

constexpr std::array<alarm_kind, 7> kinds = {{
    {"flag-12", 0x1, 12, false, "lower-page byte 12; also turns the LED to fault"},
    {"flag-10", 0x2, 10, false, "lower-page byte 10; also turns the LED to fault"},
    {"flag-13", 0x4, 17, false, "lower-page byte 13; also turns the LED to fault"},
    {"flag-49-a", 0x20000, 20, true, "lower-page byte 49, any bit"},
    {"flag-49-b", 0x40000, 21, true, "lower-page byte 49, any bit"},
    {"flag-64-high", 0x80000, 18, false, "lower-page byte 64, the higher bit of the sub-port"},
    {"flag-64-low", 0x100000, 19, false, "lower-page byte 64, the lower bit of the sub-port"},
}};

}  // namespace

std::span<const alarm_kind> alarm_kinds() { return kinds; }

std::optional<uint32_t> alarm_test_id(std::string_view text) {
  if (text == "all") return every_alarm_test_id;
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool is_number = error == std::errc() && end == text.data() + text.size();
  if (is_number && number == every_alarm_test_id) return number;
  const auto found = std::find_if(kinds.begin(), kinds.end(), [&](const alarm_kind &kind) {
    return is_number ? kind.test_id == number : kind.name == text;
  });
  if (found == kinds.end()) return std::nullopt;
  return found->test_id;
}

}  // namespace lumd
