#include "metrics/metrics.h"

#include "metrics/metrics_subjects.h"

namespace lumd {

std::string metrics_text(driver &node, metrics_format format) {
  metrics_page page;
  add_node_metrics(node, page);
  add_port_metrics(node, page);
  return page.text(format);
}

}  // namespace lumd
