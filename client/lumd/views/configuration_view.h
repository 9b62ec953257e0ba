// A sub-port's configuration, as the library has stored it.
#pragma once

#include "lum.h"
#include "views/json.h"

namespace lumd {

// Every setting, the change bits, and the names of the settings that have ever been set.
json show_configuration(const lum_port_cfg &configuration);

}  // namespace lumd
