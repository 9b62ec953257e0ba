// Which port of the node a request means.
#pragma once

#include <string>

#include "lum_linux/node_description.h"
#include "router.h"

namespace lumd {

// The port with this name, or of this position "rack/slot/instance/port", or null.
const lum_linux::port_description *find_port(driver &node, const std::string &name);

api_reply refuse_unknown_port(const std::string &name);

}  // namespace lumd
