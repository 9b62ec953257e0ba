#include "node/find_port.h"

#include <fmt/format.h>

namespace lumd {

const lum_linux::port_description *find_port(const lum_linux::node_description &node,
                                             const std::string &name) {
  const auto ports = node.ports();
  for (const auto *port : ports) {
    if (port->name == name) return port;
  }
  for (const auto *port : ports) {
    const uint32_t rsip = port->rsip;
    if (name ==
        fmt::format("{}/{}/{}/{}", rsip >> 24, rsip >> 16 & 0xFF, rsip >> 8 & 0xFF, rsip & 0xFF)) {
      return port;
    }
  }
  return nullptr;
}

}  // namespace lumd
