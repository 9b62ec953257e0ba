// A moment as people give it.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace lumctl {

using moment = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// How long before `now`, such as "10m" or "2h30m"; or when, such as "2026-01-31T08:00:00Z", or in
// the local time "2026-01-31 08:00" or "08:00". Nothing when it is neither.
std::optional<moment> read_moment(const std::string &text, moment now);

// What is wrong with such a text, for people; empty when nothing is.
std::string wrong_with_moment(const std::string &text);

}  // namespace lumctl
