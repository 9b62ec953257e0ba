// Which port of the node is meant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lum_linux/node_description.h"
#include "node/outcome.h"

namespace lumd {

// The port with this name, or of this position "rack/slot/instance/port", or null.
const lum_linux::port_description *find_port(const lum_linux::node_description &node,
                                             const std::string &name);

// A port, or one of its sub-ports.
struct port_place {
  const lum_linux::port_description *port = nullptr;
  std::optional<uint32_t> sub_port = {};

  explicit operator bool() const { return port != nullptr; }
};

// The port as above, or the sub-port that NAME:0 or NAME:1 says.
port_place find_place(const lum_linux::node_description &node, const std::string &name);

// Why either of them has found nothing: a sub-port where a port is wanted, no such sub-port, or no
// such port, with those that there are.
refusal reason_against_port(const lum_linux::node_description &node, const std::string &name);

}  // namespace lumd
