// A port as the API shows it.
#pragma once

#include "lum_linux/node_description.h"
#include "views/json.h"

namespace lumd {

class driver;

// The whole view.
json show_port(driver &node, const lum_linux::port_description &port);

// Those of every port; with `existing_only` of those alone that the library knows.
json show_ports(driver &node, bool existing_only);

// What a picture of the shelf shows of every port: its state, LED, identity, readings and alarms,
// at a small part of the cost.
json show_shelf(driver &node);

}  // namespace lumd
