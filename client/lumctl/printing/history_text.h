// The readings of the last hours as rows of bars.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

// Only what was polled at `not_before` or later, in seconds since the epoch.
std::string describe_history(const json &answer, double not_before, const style &output);

}  // namespace lumctl
