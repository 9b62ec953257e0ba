// The node, for people.
#pragma once

#include <string>

#include "api/json.h"

namespace lumctl {

std::string describe_node(const json &node);

}  // namespace lumctl
