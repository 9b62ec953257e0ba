// What a dump of a module's memory says, as the driver would show it.
#pragma once

#include "api/json.h"
#include "decode/memory_dump.h"

namespace lumctl {

// The members that a port's view has too have the same names, units and meanings there. What is not
// in the dump is null or an empty list, and stands in "missing".
json decode(const memory_dump &dump);

}  // namespace lumctl
