// The ports, all or one of them.
#include "api/routes.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "views/port_view.h"

namespace lumd {
namespace {

// With ?existing only the ports that exist, else also those that are only described.
api_reply get_ports(driver &node, const api_request &request) {
  return {200, show_ports(node, request.query.contains("existing"))};
}

api_reply get_port(driver &node, const api_request &request) {
  const auto *port = find_port(node.node(), request.parameters[0]);
  if (port == nullptr) return refuse_unknown_port(request.parameters[0]);
  return {200, show_port(node, *port)};
}

constexpr route routes[] = {
    {"GET", "/v1/ports", get_ports},
    {"GET", "/v1/ports/{}", get_port},
};

}  // namespace

std::span<const route> port_routes() { return routes; }

}  // namespace lumd
