#include "find_port.h"

#include <fmt/format.h>

#include "driver.h"

namespace lumd {

const lum_linux::port_description *find_port(driver &node, const std::string &name) {
  const auto ports = node.node().ports();
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

api_reply refuse_unknown_port(const std::string &name) {
  return refuse(404, fmt::format("the node has no port \"{}\"", name));
}

}  // namespace lumd
