// The store of settings in words.
#pragma once

#include <string>

#include "api/json.h"

namespace lumctl {

// Of a node's "store": nothing when all is well.
std::string describe_node_store(const json &store);
// Of a port's.
std::string describe_port_store(const json &store);
// A sentence for below a table; nothing when the store can be used.
std::string describe_missing_store(const json &store);

}  // namespace lumctl
