// All ports as a table.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

// Folds to the terminal's width, unless `wide` asks for one line a sub-port.
std::string describe_ports(const json &answer, bool wide, const style &output);

}  // namespace lumctl
