// A sub-port's configuration, as the library has stored it.
#pragma once

#include "lum.h"
#include "views/json.h"

namespace lumd {

// Every setting, the change bits, and the names of the settings that have ever been set. The others
// are null: no module was told of them, and the library's 0 for them means nothing. "changed_known"
// is false where settings were saved before that could not be read.
json show_configuration(const lum_port_cfg &configuration, bool saved_are_known);

}  // namespace lumd
