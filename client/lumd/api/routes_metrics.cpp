#include "metrics.h"
#include "routes.h"

namespace lumd {
namespace {

api_reply get_metrics(driver &node, const api_request &request) {
  metrics_page page;
  add_node_metrics(node, page);
  add_port_metrics(node, page);
  const metrics_format format = metrics_format_for(request.accept);
  api_reply reply;
  reply.text = page.text(format);
  reply.text_type = content_type(format);
  return reply;
}

constexpr route routes[] = {
    {"GET", "/metrics", get_metrics},
};

}  // namespace

std::span<const route> metrics_routes() { return routes; }

}  // namespace lumd
