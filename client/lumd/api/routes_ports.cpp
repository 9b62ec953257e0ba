// The ports, all or one of them.
#include "api/routes.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "views/history_view.h"
#include "views/port_view.h"

namespace lumd {
namespace {

api_reply reply_of(ports_view shown) {
  return {200, std::move(shown.rest), "ports", std::move(shown.ports)};
}

// With ?existing only the ports that exist, else also those that are only described.
api_reply get_ports(driver &node, const api_request &request) {
  std::string wrong;
  const bool existing_only = is_queried(request, "existing", wrong);
  if (!wrong.empty()) return refuse(400, wrong);
  return reply_of(show_ports(node, existing_only));
}

api_reply get_shelf(driver &node, const api_request &) { return reply_of(show_shelf(node)); }

api_reply get_port(driver &node, const api_request &request) {
  const port_place place = find_place(node.node(), request.parameters[0]);
  if (!place) return refuse_port(node.node(), request.parameters[0]);
  json shown = show_port(node, *place.port);
  keep_sub_port(place.sub_port, shown.at("sub_ports"));
  return {200, std::move(shown)};
}

api_reply get_history(driver &node, const api_request &request) {
  const port_place place = find_place(node.node(), request.parameters[0]);
  if (!place) return refuse_port(node.node(), request.parameters[0]);
  return {200, show_history(node, *place.port, place.sub_port)};
}

}  // namespace

std::span<const route> port_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/ports", get_ports, {"existing"}},
      {"GET", "/v1/shelf", get_shelf},
      {"GET", "/v1/ports/{name}", get_port},
      {"GET", "/v1/ports/{name}/history", get_history},
  };
  return routes;
}

}  // namespace lumd
