// The controllers as a table.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

std::string describe_controllers(const json &answer, const style &output);

}  // namespace lumctl
