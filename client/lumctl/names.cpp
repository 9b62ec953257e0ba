#include "names.h"

#include <algorithm>
#include <array>
#include <utility>

namespace lumctl {
namespace {

using name = std::string_view;

constexpr std::array<name, 7> setting_names = {"threshold", "p2-setting", "mode", "setting-a",
                                               "setting-b", "enable",     "sub1"};
constexpr std::array<name, 7> alarm_names = {"flag-10",   "flag-12",      "flag-13",    "flag-49-a",
                                             "flag-49-b", "flag-64-high", "flag-64-low"};
constexpr std::array<name, 4> raisable_reading_names = {"reading-3", "power-1", "power-0",
                                                        "reading-4"};
constexpr std::array<name, 14> module_fault_names = {"refuse-every=", "refuse-percent=",
                                                     "code=",         "only=reads",
                                                     "only=writes",   "delay-ms=",
                                                     "hang",          "flip-every=",
                                                     "flip-percent=", "flip-bits=",
                                                     "half-every=",   "remove-after=",
                                                     "insert-after=", "seed="};
constexpr std::array<name, 4> malformation_names = {"garbage", "truncated", "missing-member",
                                                    "absent"};
constexpr std::array<name, 2> bin_names = {"15min", "24h"};
constexpr std::array<name, 2> controller_state_names = {"up", "down"};
constexpr std::array<name, 2> switch_state_names = {on, "off"};
constexpr std::array<name, 5> reading_title_names = {"P0 dBm", "P1 dBm", "P2 dBm", "R3", "R4"};

using coloured_name = std::pair<name, colour>;
constexpr std::array<coloured_name, 7> port_states = {{{"up", colour::good},
                                                       {"coming up", colour::warning},
                                                       {"empty", colour::warning},
                                                       {"failing", colour::bad},
                                                       {"upgrading", colour::warning},
                                                       {"deleting", colour::warning},
                                                       {"absent", colour::warning}}};
constexpr std::array<coloured_name, 2> led_states = {
    {{"normal", colour::good}, {"fault", colour::bad}}};

colour colour_among(std::span<const coloured_name> names, name wanted, colour unless_known) {
  const auto found = std::find_if(names.begin(), names.end(),
                                  [&](const coloured_name &one) { return one.first == wanted; });
  return found == names.end() ? unless_known : found->second;
}

}  // namespace

std::span<const name> settings() { return setting_names; }
std::span<const name> alarms() { return alarm_names; }
std::span<const name> raisable_readings() { return raisable_reading_names; }
std::span<const name> module_faults() { return module_fault_names; }
std::span<const name> malformations() { return malformation_names; }
std::span<const name> bins() { return bin_names; }
std::span<const name> controller_states() { return controller_state_names; }
std::span<const name> switch_states() { return switch_state_names; }
std::span<const name> reading_titles() { return reading_title_names; }

std::string member_of(name setting) {
  std::string member(setting);
  std::replace(member.begin(), member.end(), '-', '_');
  return member;
}

colour colour_of_port(name state) { return colour_among(port_states, state, colour::warning); }
colour colour_of_led(name state) { return colour_among(led_states, state, colour::none); }

std::vector<std::string> as_words(std::span<const name> names) {
  return {names.begin(), names.end()};
}

std::string listed(std::span<const name> names, name last) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? last : ", ";
    text += names[i];
  }
  return text;
}

}  // namespace lumctl
