// The alarms of a sub-port: their names, the bits they are in the library's bitmap, and the numbers
// by which its alarm tests know them. docs/alarms.md tells where each comes from.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace lumd {

struct alarm_kind {
  std::string_view name;
  uint64_t bit;
  uint32_t test_id;
  bool sub_port_1_only;
  std::string_view source;  // for people
};

// In the order of their bits.
std::span<const alarm_kind> alarm_kinds();

// Whether sub-port 0 or 1 can have the alarm.
constexpr bool belongs_to(const alarm_kind &kind, std::size_t sub_port) {
  return sub_port == 1 || !kind.sub_port_1_only;
}

// The alarm test that means every alarm of the sub-port.
constexpr uint32_t every_alarm_test_id = 22;

// The number by which the alarm tests know an alarm, from its name, that number in decimal, or
// "all".
std::optional<uint32_t> alarm_test_id(std::string_view text);

}  // namespace lumd
