#include "api/routes.h"

namespace lumd {

std::vector<std::span<const route>> api_routes() {
  return {port_routes(),       controller_routes(), module_routes(),        node_routes(),
          lifecycle_routes(),  settings_routes(),   module_action_routes(), im_routes(),
          monitoring_routes(), inject_routes(),     entity_agent_routes(),  health_routes(),
          event_routes()};
}

}  // namespace lumd
