// Which port of the node is meant.
#pragma once

#include <string>

#include "lum_linux/node_description.h"

namespace lumd {

// The port with this name, or of this position "rack/slot/instance/port", or null.
const lum_linux::port_description *find_port(const lum_linux::node_description &node,
                                             const std::string &name);

}  // namespace lumd
