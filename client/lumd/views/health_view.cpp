#include "views/health_view.h"

#include <nlohmann/json.hpp>

#include "node/driver.h"
#include "node/findings.h"
#include "node/health.h"
#include "views/node_view.h"

namespace lumd {

json show_health(driver &node) {
  const auto found = findings_of(node);
  const severity worst = found.empty() ? severity::ok : found.front().how_bad;
  json shown = json::array();
  for (const finding &one : found) {
    shown.push_back({{"severity", name_of(lum_words::severities, one.how_bad)},
                     {"kind", one.kind},
                     {"port", one.port.empty() ? json() : json(one.port)},
                     {"reason", one.reason}});
  }
  return {{"node", node.node().name},
          {"status", name_of(lum_words::severities, worst)},
          {"findings", std::move(shown)},
          {"ports", node.node().ports().size()},
          {"port_states", count_states(node)}};
}

json show_liveness(driver &node) {
  const std::string stands = what_stands_still(node);
  return {{"ok", stands.empty()}, {"reason", stands.empty() ? json() : json(stands)}};
}

json show_readiness(driver &node) {
  const bool ready = node.is_brought_up();
  return {{"ready", ready}, {"reason", ready ? json() : json("ports are still being created")}};
}

}  // namespace lumd
