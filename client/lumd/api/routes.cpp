#include "routes.h"

#include <array>

namespace lumd {

http_reply answer(driver &node, const http_request &request) {
  const std::array groups = {port_routes(),          controller_routes(),   module_routes(),
                             node_routes(),          lifecycle_routes(),    settings_routes(),
                             module_action_routes(), im_routes(),           monitoring_routes(),
                             inject_routes(),        entity_agent_routes(), metrics_routes()};
  return answer(node, groups, request);
}

}  // namespace lumd
