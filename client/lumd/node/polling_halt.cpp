#include "node/polling_halt.h"

#include <fmt/format.h>

#include <algorithm>

#include "node/driver.h"
#include "node/port_data.h"
#include "node/port_snapshot.h"

namespace lumd {
namespace {

using lum_linux::port_description;

// Longer than the library's pause between two cycles takes nobody who is at work.
constexpr std::chrono::seconds at_rest(15);

// The first port, in the node's order, whose module hangs.
const port_description *hung_port(driver &node) {
  for (const port_description *port : node.node().ports()) {
    const auto module = node.platform().modules().status(port->rsip);
    if (module && module->busy_for > hung_after) return port;
  }
  return nullptr;
}

bool has_work() {
  const auto copies = copy_ports();
  return std::any_of(copies.begin(), copies.end(),
                     [](const auto &one) { return is_to_be_polled(one.second); });
}

}  // namespace

std::optional<polling_halt> halt_of(driver &node) {
  const polling_report polling = node.polling().report();
  if (polling.paused) {
    return polling_halt{fmt::format("polling is switched off: there is {}", pause_switch),
                        polling.quiet_for};
  }
  if (node.count().halts_polling()) {
    return polling_halt{"the library counts no controllers; a replay ends that", polling.quiet_for};
  }
  if (polling.quiet_for <= hung_after || !has_work()) return std::nullopt;
  const port_description *hung = hung_port(node);
  if (hung != nullptr && (polling.inside || polling.quiet_for > at_rest)) {
    return polling_halt{fmt::format("the module of port {} holds it up", hung->name),
                        polling.quiet_for};
  }
  if (polling.quiet_for <= at_rest) return std::nullopt;
  return polling_halt{"polling stands still", polling.quiet_for};
}

}  // namespace lumd
