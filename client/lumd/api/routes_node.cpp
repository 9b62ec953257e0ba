// The node and its driver.
#include "api/routes.h"
#include "views/description_view.h"
#include "views/node_view.h"
#include "views/polling_view.h"

namespace lumd {
namespace {

api_reply get_node(driver &node, const api_request &) { return {200, show_node(node)}; }

api_reply get_description(driver &node, const api_request &) {
  return {200, show_description(node)};
}

api_reply get_polling(driver &node, const api_request &) { return {200, show_polling(node)}; }

}  // namespace

std::span<const route> node_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/node", get_node},
      {"GET", "/v1/description", get_description},
      {"GET", "/v1/polling", get_polling},
  };
  return routes;
}

}  // namespace lumd
