// The readings of the last hours as rows of bars.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

// Leaves out of an answer what was polled before then, in seconds since the epoch.
void keep_polls_since(double not_before, json &answer);

std::string describe_history(const json &answer, const style &output);

}  // namespace lumctl
