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

// The port that polling is at, when its module hangs.
const port_description *hung_port(driver &node, uint32_t visited) {
  const auto module = node.platform().modules().status(visited);
  return module && module->busy_for > hung_after ? node.node().find(visited) : nullptr;
}

// The count has 8 bits; a replay adds the same to it once more.
std::string remedy_for_count() {
  constexpr std::size_t counted_up_to = 256;
  const auto copies = copy_ports();
  const auto created = std::count_if(copies.begin(), copies.end(),
                                     [](const auto &one) { return is_created(one.second); });
  const bool stays = static_cast<std::size_t>(created) * LUM_SUB_PORTS % counted_up_to == 0;
  return stays ? "the deletion of one port ends that" : "a replay ends that";
}

}  // namespace

std::optional<polling_halt> halt_of(driver &node) {
  const polling_report polling = node.polling().report();
  if (node.node().rack != 0) {
    return polling_halt{"the library reaches modules in rack 0 only", node.uptime()};
  }
  if (polling.paused) {
    return polling_halt{fmt::format("polling is switched off: there is {}", pause_switch),
                        polling.quiet_for};
  }
  if (node.count().halts_polling()) {
    return polling_halt{"the library counts no controllers; " + remedy_for_count(),
                        polling.quiet_for};
  }
  if (polling.quiet_for <= hung_after || !has_work_for_polling()) return std::nullopt;
  const port_description *hung = hung_port(node, polling.visited);
  if (hung != nullptr && (polling.inside || polling.quiet_for > at_rest)) {
    return polling_halt{fmt::format("the module of port {} holds it up", hung->name),
                        polling.quiet_for};
  }
  if (polling.quiet_for <= at_rest) return std::nullopt;
  const port_description *at = polling.inside ? node.node().find(polling.visited) : nullptr;
  return polling_halt{at == nullptr ? "polling stands still"
                                    : fmt::format("polling stands still at port {}", at->name),
                      polling.quiet_for};
}

}  // namespace lumd
