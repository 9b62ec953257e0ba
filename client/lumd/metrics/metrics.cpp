#include "metrics/metrics.h"

#include "metrics/metrics_subjects.h"

namespace lumd {

std::string metrics_text(driver &node) {
  metrics_page page;
  add_process_metrics(node, page);
  add_node_metrics(node, page);
  add_port_metrics(node, page);
  return page.text();
}

const char *metrics_content_type() { return metrics_page::content_type; }

}  // namespace lumd
