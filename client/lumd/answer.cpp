#include "answer.h"

#include "api/routes.h"
#include "metrics/metrics.h"

namespace lumd {
namespace {

api_reply get_metrics(driver &node, const api_request &) {
  api_reply reply;
  reply.text = metrics_text(node);
  reply.text_type = metrics_content_type();
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
  return answer(node, groups, request);
}

}  // namespace lumd
