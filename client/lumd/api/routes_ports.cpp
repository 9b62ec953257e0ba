#include "driver.h"
#include "find_port.h"
#include "port_view.h"
#include "routes.h"

namespace lumd {
namespace {

// With ?existing only the ports that exist, else also those that are only described.
api_reply get_ports(driver &node, const api_request &request) {
  const bool existing_only = request.query.contains("existing");
  const auto copies = copy_ports();
  json ports = json::array();
  for (const lum_linux::port_description *port : node.node().ports()) {
    const auto found = copies.find(port->rsip);
    if (existing_only && found == copies.end()) continue;
    ports.push_back(show_port(node, *port, found == copies.end() ? nullptr : &found->second));
  }
  return {200, {{"ports", std::move(ports)}}};
}

api_reply get_port(driver &node, const api_request &request) {
  const auto *port = find_port(node, request.parameters[0]);
  if (port == nullptr) return refuse_unknown_port(request.parameters[0]);
  const auto copy = copy_port(port->rsip);
  return {200, show_port(node, *port, copy ? &*copy : nullptr)};
}

constexpr route routes[] = {
    {"GET", "/v1/ports", get_ports},
    {"GET", "/v1/ports/{}", get_port},
};

}  // namespace

std::span<const route> port_routes() { return routes; }

}  // namespace lumd
