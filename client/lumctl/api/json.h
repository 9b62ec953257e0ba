// What the driver's answers are read into. Members stay in the order in which the driver gave them.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace lumctl {

using json = nlohmann::ordered_json;

}  // namespace lumctl
