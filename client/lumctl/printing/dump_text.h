// A decoded dump of a module's memory as text.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

std::string describe_dump(const json &decoded, const style &where);

}  // namespace lumctl
