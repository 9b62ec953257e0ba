// A moment as people give it.
#pragma once

#include <optional>
#include <string>

#include "trace/trace_line.h"

namespace lumctl {

// So long before `now`: "90s", "10m", "2h30m", "1d"; or a wall time, of this machine's zone unless
// it ends in Z: "2026-01-31T08:00:00Z", "2026-01-31 08:00", "2026-01-31", and "08:00" of today.
// Nothing when it is neither.
std::optional<trace_time> read_moment(const std::string &text, trace_time now);

// Empty, or what is wrong with such a text.
std::string wrong_with_moment(const std::string &text);

}  // namespace lumctl
