#include "node/findings.h"

#include <fmt/format.h>

#include <algorithm>

#include "lum_linux/checkpoints.h"
#include "lum_linux/stores.h"
#include "lum_linux/traces.h"
#include "node/alarms.h"
#include "node/driver.h"
#include "node/health.h"
#include "node/polling_halt.h"
#include "node/troubles.h"

namespace lumd {
namespace {

using lum_linux::port_description;
using lum_words::finding_id;

// A port may come up or go for so long before that is a finding.
constexpr std::chrono::seconds usual_transition(30);

class collection {
 public:
  void add(severity how_bad, finding_id kind, const std::string &reason,
           const std::string &port = {}) {
    all.push_back({how_bad, name_of(lum_words::findings, kind), port, reason});
  }
  void add_state(severity how_bad, const port_description &port, const port_snapshot &at) {
    all.push_back({how_bad, name_of(lum_words::port_states, at.state), port.name, at.reason});
  }

  std::vector<finding> all;
};

void add_driver(driver &node, collection &found) {
  if (const auto stands = what_stands_still(node); !stands.empty()) {
    found.add(severity::critical, finding_id::driver_stands, stands);
  }
  if (const auto halt = halt_of(node)) {
    found.add(severity::critical, finding_id::not_polled, halt->reason);
  }
  for (const std::string &reason : never_polled(node.node())) {
    found.add(severity::critical, finding_id::never_polled, reason);
  }
}

void add_store(driver &node, collection &found) {
  const auto store = lum_linux::checkpoints_status();
  if (!store.usable) {
    found.add(severity::critical, finding_id::store_unusable, store.reason);
  }
  for (const auto &one : store.troubled) {
    const port_description *port = node.node().find(one.key);
    found.add(severity::critical, finding_id::settings_at_risk, one.reason,
              port == nullptr ? fmt::format("0x{:08x}", one.key) : port->name);
  }
  if (!store.doubt.empty()) {
    found.add(severity::warning, finding_id::settings_at_risk, store.doubt);
  }
}

void add_records(driver &node, collection &found) {
  if (const auto problem = node.records().problem(); !problem.empty()) {
    found.add(severity::warning, finding_id::events_not_kept, problem);
  }
}

void add_traces(collection &found) {
  for (const auto &channel : lum_linux::traces_status()) {
    if (channel.reason.empty()) continue;
    found.add(severity::warning, finding_id::trace_lost,
              fmt::format("{}: {}", channel.file.native(), channel.reason));
  }
}

bool takes_long(const port_snapshot &at) {
  return std::chrono::steady_clock::now() - at.since > usual_transition;
}

void add_state(const port_description &port, const port_snapshot &at, collection &found) {
  switch (at.state) {
    case port_state::failing:
      return found.add_state(severity::critical, port, at);
    case port_state::stale:
      return found.add_state(severity::warning, port, at);
    case port_state::coming_up:
    case port_state::going:
      if (takes_long(at)) found.add_state(severity::warning, port, at);
      return;
    case port_state::absent:
    case port_state::empty:
    case port_state::upgrading:
    case port_state::up:
      return;
  }
}

std::string names_of_alarms(uint64_t bitmap, uint64_t forced) {
  std::string text;
  for (const lum_words::alarm &kind : lum_words::alarms) {
    if ((bitmap & bit_of(kind)) == 0) continue;
    text += fmt::format("{}{}{}", text.empty() ? "" : ", ", kind.name,
                        (forced & bit_of(kind)) == 0 ? "" : " (injected by a test)");
  }
  return text;
}

// Of what the alarm service was told of the module that is there.
void add_alarms(driver &node, const port_description &port, const port_snapshot &at,
                collection &found) {
  if (!at.polled) return;
  for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) {
    const uint32_t ifhandle = at.copy->data.sub_port[i].ifhandle;
    const auto fed = node.feed().fed(ifhandle);
    if (!fed || fed->ended < at.begun) continue;
    const auto stored = lum_linux::ptah_find(ifhandle);
    if (!stored || stored->all.bitmap == 0) continue;
    found.add(severity::warning, finding_id::alarm_raised,
              fmt::format("sub-port {} has alarms: {}", i,
                          names_of_alarms(stored->all.bitmap, fed->forced_alarms)),
              port.name);
  }
}

void add_troubles(driver &node, collection &found) {
  for (const trouble &one : troubles_of(node)) {
    const bool is_led = one.kind == led_trouble_name;
    found.add(is_led ? severity::warning : severity::critical,
              is_led ? finding_id::led_broken : finding_id::place_missing, one.reason,
              one.port->name);
  }
}

}  // namespace

std::vector<finding> findings_of(driver &node) { return findings_of(node, look_at_ports(node)); }

std::vector<finding> findings_of(driver &node, const std::map<uint32_t, port_snapshot> &snapshots) {
  auto all = findings_beside_ports(node);
  for (finding &one : findings_of_ports(node, snapshots)) all.push_back(std::move(one));
  std::stable_sort(all.begin(), all.end(),
                   [](const finding &a, const finding &b) { return a.how_bad > b.how_bad; });
  return all;
}

std::vector<finding> findings_beside_ports(driver &node) {
  collection found;
  add_driver(node, found);
  add_store(node, found);
  add_records(node, found);
  add_traces(found);
  return found.all;
}

std::vector<finding> findings_of_ports(driver &node,
                                       const std::map<uint32_t, port_snapshot> &snapshots) {
  collection found;
  for (const port_description *port : node.node().ports()) {
    const port_snapshot &at = snapshots.at(port->rsip);
    // A place that cannot be reached is told as what it is.
    if (at.module.place_code == 0) add_state(*port, at, found);
    add_alarms(node, *port, at, found);
  }
  add_troubles(node, found);
  return found.all;
}

}  // namespace lumd
