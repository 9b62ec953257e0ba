// The alarms as a table.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

std::string describe_alarms(const json &answer, const style &output);

}  // namespace lumctl
