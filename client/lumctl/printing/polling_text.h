// The polling cycles, for people.
#pragma once

#include <string>

#include "api/json.h"

namespace lumctl {

// One line without an end: the time of day, the latest cycle and what is under way.
std::string describe_polling(const json &polling);

}  // namespace lumctl
