// A port as the API shows it.
#pragma once

#include "lum_linux/node_description.h"
#include "node/port_data.h"
#include "views/json.h"

namespace lumd {

class driver;

// The whole view; `copy` is null for a port that the library does not know.
json show_port(driver &node, const lum_linux::port_description &port, const port_copy *copy);

// Those of every port; with `existing_only` of those alone that the library knows.
json show_ports(driver &node, bool existing_only);

}  // namespace lumd
