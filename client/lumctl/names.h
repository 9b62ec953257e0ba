// The words that lumctl has for what the driver knows, one table each: help, completion, checks and
// printing take them from here.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "terminal/style.h"

namespace lumctl {

// On the command line and in texts "setting-a", in the driver's JSON "setting_a".
std::span<const std::string_view> settings();
std::string member_of(std::string_view setting);

// What can be injected for a test, besides `everything`.
std::span<const std::string_view> alarms();
std::span<const std::string_view> raisable_readings();
constexpr std::string_view everything = "all";

// Words of a fault script; those that end in '=' take a number.
std::span<const std::string_view> module_faults();
// How the interface manager may spoil a reply.
std::span<const std::string_view> malformations();

// Lengths of performance monitoring's bins.
std::span<const std::string_view> bins();

// What a port's controllers can be told.
std::span<const std::string_view> controller_states();
std::span<const std::string_view> switch_states();
constexpr std::string_view on = "on";

// A sub-port's readings as columns; the powers come first.
std::span<const std::string_view> reading_titles();

// States of ports and of LEDs, as the driver names them, with the colours that they are shown in.
colour colour_of_port(std::string_view state);
colour colour_of_led(std::string_view state);

// For records and for sentences: "a, b or c".
std::vector<std::string> as_words(std::span<const std::string_view> names);
std::string listed(std::span<const std::string_view> names, std::string_view last = " or ");

}  // namespace lumctl
