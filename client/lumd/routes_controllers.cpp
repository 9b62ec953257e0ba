#include "driver.h"
#include "routes.h"

namespace lumd {
namespace {

api_reply get_controllers(driver &node, const api_request &) {
  json controllers = json::array();
  for (const auto &controller : node.platform().im().controllers()) {
    controllers.push_back({{"name", controller.name},
                           {"ifhandle", controller.handle},
                           {"state", controller.state},
                           {"updates", controller.updates}});
  }
  const auto statistics = node.platform().im().statistics();
  return {
      200,
      {{"controllers", std::move(controllers)},
       {"batches",
        {{"create", statistics.create_batches},
         {"delete", statistics.delete_batches},
         {"update", statistics.update_batches},
         {"refused", statistics.refused},
         {"answered", statistics.answered},
         {"dropped", statistics.dropped},
         {"pending", statistics.pending}}},
       {"elements", {{"accepted", statistics.elements}, {"failed", statistics.failed_elements}}},
       {"restarts", statistics.restarts}}};
}

constexpr route routes[] = {
    {"GET", "/v1/controllers", get_controllers},
};

}  // namespace

std::span<const route> controller_routes() { return routes; }

}  // namespace lumd
