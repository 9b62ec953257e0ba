// The settings of sub-ports, as the library has them and as they are elsewhere.
#pragma once

#include <cstdint>

#include "lum.h"
#include "lum_linux/node_description.h"
#include "views/json.h"

namespace lumd {

struct settings_look;
struct settings_report;

// Every setting, the change bits, and the names of the settings that have ever been set. The others
// are null: no module was told of them, and the library's 0 for them means nothing. "changed_known"
// is false where settings were saved before that could not be read.
json show_configuration(const lum_port_cfg &configuration, bool saved_are_known);

// What was asked for of a sub-port, and what else becomes another value by it; "old" is null for
// what was never set.
json show_changes(const settings_report &report);

// Both sub-ports of a port: each setting saved, in force and, if it was asked, in the module. A
// value that is not known is null, with the reason.
json show_settings(const settings_look &at, const lum_linux::setting_units &units);

// What a deletion of the port drops, by sub-port; empty when it drops nothing that is known.
json show_dropped(const settings_look &at);

}  // namespace lumd
