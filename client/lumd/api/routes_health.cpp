// How the node fares: for monitoring systems, and for those who start and restart services.
#include "api/routes.h"
#include "views/health_view.h"

namespace lumd {
namespace {

api_reply get_health(driver &node, const api_request &) { return {200, show_health(node)}; }

// What is not as the member says it ought to be is a problem with the same members.
api_reply judge(const json &shown, const char *member) {
  if (shown.at(member) == true) return {200, shown};
  api_reply reply = refuse(503, shown.at("reason").get<std::string>());
  reply.body.update(shown);
  return reply;
}

api_reply get_liveness(driver &node, const api_request &) {
  return judge(show_liveness(node), "ok");
}

api_reply get_readiness(driver &node, const api_request &) {
  return judge(show_readiness(node), "ready");
}

}  // namespace

std::span<const route> health_routes() {
  static constexpr route routes[] = {
      {"GET", "/healthz", get_liveness},
      {"GET", "/readyz", get_readiness},
      {"GET", "/v1/health", get_health},
  };
  return routes;
}

}  // namespace lumd
