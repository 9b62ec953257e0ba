// A port as the API shows it.
#pragma once

#include <string>

#include <nlohmann/json.hpp>
#include "lum_linux/node_description.h"

#include "views/json.h"

namespace lumd {

class driver;

// The whole view.
json show_port(driver &node, const lum_linux::port_description &port);

// Many ports. Each is made into text by itself: a document of all takes ten times as much memory.
struct ports_view {
  std::string ports;  // an array
  json rest;          // the other members of the document
};

// The whole views of every port; with `existing_only` of those alone that the library knows.
ports_view show_ports(driver &node, bool existing_only);

// What a picture of the shelf shows of every port: its state, LED, identity, readings and alarms,
// at a small part of the cost.
ports_view show_shelf(driver &node);

}  // namespace lumd
