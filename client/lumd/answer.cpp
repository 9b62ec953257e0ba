#include "answer.h"

#include "api/index.h"
#include "api/routes.h"
#include "metrics/metrics.h"
#include "panel.h"

namespace lumd {
namespace {

route_groups all_routes();

api_reply get_index(driver &, const api_request &) { return {200, show_index(all_routes())}; }

api_reply get_openapi(driver &, const api_request &) {
  api_reply reply;
  reply.text = openapi_text();
  reply.text_type = "application/json";
  return reply;
}

api_reply get_metrics(driver &node, const api_request &) {
  api_reply reply;
  reply.text = metrics_text(node);
  reply.text_type = metrics_content_type();
  return reply;
}

constexpr route own_routes[] = {
    {"GET", "/v1", get_index},
    {"GET", "/v1/", get_index},
    {"GET", "/v1/openapi.json", get_openapi},
    {"GET", "/metrics", get_metrics},
};

route_groups all_routes() {
  static const auto groups = [] {
    auto all = api_routes();
    all.emplace_back(own_routes);
    return all;
  }();
  return groups;
}

}  // namespace

http_reply answer(driver &node, const http_request &request) {
  if (auto page = answer_with_panel(request)) return std::move(*page);
  return answer(node, all_routes(), request);
}

}  // namespace lumd
