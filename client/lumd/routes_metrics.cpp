#include "metrics.h"
#include "routes.h"

namespace lumd {
namespace {

api_reply get_metrics(driver &node, const api_request &) {
  metrics_page page;
  add_node_metrics(node, page);
  add_port_metrics(node, page);
  api_reply reply;
  reply.text = page.text();
  reply.text_type = metrics_content_type;
  return reply;
}

constexpr route routes[] = {
    {"GET", "/metrics", get_metrics},
};

}  // namespace

std::span<const route> metrics_routes() { return routes; }

}  // namespace lumd
