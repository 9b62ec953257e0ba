#include "answer.h"

#include "api/routes.h"
#include "metrics/metrics.h"
#include "panel.h"

namespace lumd {
namespace {

api_reply get_metrics(driver &node, const api_request &request) {
  const metrics_format format = metrics_format_for(request.accept);
  api_reply reply;
  reply.text = metrics_text(node, format);
  reply.text_type = content_type(format);
  return reply;
}

constexpr route metrics_routes[] = {
    {"GET", "/metrics", get_metrics},
};

}  // namespace

http_reply answer(driver &node, const http_request &request) {
  static const auto groups = [] {
    auto all = api_routes();
    all.emplace_back(metrics_routes);
    return all;
  }();
  if (auto page = answer_with_panel(request)) return std::move(*page);
  return answer(node, groups, request);
}

}  // namespace lumd
