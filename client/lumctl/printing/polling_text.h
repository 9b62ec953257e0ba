// The polling cycles, for people.
#pragma once

#include <string>

#include "api/json.h"

namespace lumctl {

// One line without an end: the time of day, the latest cycle and what is under way.
std::string describe_polling(const json &polling);

// A line below readings that says that no module is polled, why, and since when; nothing while they
// are.
std::string describe_halt(const json &halt);

}  // namespace lumctl
