// How the node fares: for monitoring systems, and for those who start and restart services.
#include "api/routes.h"
#include "views/health_view.h"

namespace lumd {
namespace {

api_reply get_health(driver &node, const api_request &) { return {200, show_health(node)}; }

api_reply get_liveness(driver &node, const api_request &) {
  json shown = show_liveness(node);
  return {shown.at("ok") == true ? 200u : 503u, std::move(shown)};
}

api_reply get_readiness(driver &node, const api_request &) {
  json shown = show_readiness(node);
  return {shown.at("ready") == true ? 200u : 503u, std::move(shown)};
}

constexpr route routes[] = {
    {"GET", "/healthz", get_liveness},
    {"GET", "/readyz", get_readiness},
    {"GET", "/v1/health", get_health},
};

}  // namespace

std::span<const route> health_routes() { return routes; }

}  // namespace lumd
