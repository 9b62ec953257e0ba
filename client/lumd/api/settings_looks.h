// Looks at settings, each place asked where it holds up nobody else.
#pragma once

#include <vector>

#include "node/lifecycle.h"
#include "node/settings_look.h"

namespace lumd {

class driver;

// Of each port, in their order. The store and, when they are asked, the modules have two seconds;
// what has not answered by then is not known, with the reason.
std::vector<settings_look> look_at_settings(driver &node, const port_list &ports,
                                            bool asks_modules);

}  // namespace lumd
