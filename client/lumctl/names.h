// What lumctl does with the names of the tables in words/, and the words that are its own.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/style.h"

namespace lumctl {

constexpr std::string_view on = "on";
constexpr std::array<std::string_view, 2> switch_states = {on, "off"};

// States of ports and of LEDs, as the driver names them, with the colours that they are shown in.
colour colour_of_port(std::string_view state);
colour colour_of_led(std::string_view state);

// How early a port stands where the worst come first: more is worse.
double badness_of_port(std::string_view state, bool has_alarms);

// For records and for sentences: "a, b or c".
std::vector<std::string> as_words(std::span<const std::string_view> names);
std::string listed(std::span<const std::string_view> names, std::string_view last = " or ");

}  // namespace lumctl
