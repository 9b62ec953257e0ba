#include "views/node_view.h"

#include <fmt/format.h>

#include <map>
#include <nlohmann/json.hpp>

#include "json/object.h"
#include "lum.h"
#include "lum_linux/services.h"
#include "node/driver.h"
#include "node/port_data.h"
#include "node/port_snapshot.h"
#include "node/troubles.h"
#include "views/event_view.h"
#include "views/polling_view.h"
#include "views/store_view.h"
#include "views/times.h"

namespace lumd {
namespace {

using lum_client::object;

std::string version() {
  return fmt::format("{}.{}.{}", LUM_VERSION_MAJOR, LUM_VERSION_MINOR, LUM_VERSION_PATCH);
}

json show_checkpoints(const lum_linux::checkpoint_status &store) {
  json shown = object({{"file", store.file.string()},
                       {"entries", store.open ? json(store.entries) : json()},
                       {"writes", store.writes},
                       {"failures", store.failures}});
  if (!store.last_failure.empty()) shown["last_failure"] = store.last_failure;
  if (!store.set_aside.empty()) {
    shown["set_aside"] =
        object({{"file", store.set_aside.string()}, {"reason", store.set_aside_reason}});
  }
  return shown;
}

json show_traces() {
  json channels = json::array();
  for (const auto &channel : lum_linux::traces_status()) {
    channels.push_back(
        object({{"name", channel.name},
                {"file", channel.file.string()},
                {"enabled", channel.enabled},
                {"lines", channel.lines},
                {"failures", channel.failures},
                {"reason", channel.reason.empty() ? json(nullptr) : json(channel.reason)}}));
  }
  return channels;
}

json show_troubles(driver &node) {
  json shown = json::array();
  for (const trouble &one : troubles_of(node)) {
    shown.push_back(object({{"port", one.port->name}, {"kind", one.kind}, {"reason", one.reason}}));
  }
  return shown;
}

}  // namespace

json count_states(driver &node) {
  std::map<port_state, unsigned> found;
  for (const auto &[rsip, at] : look_at_ports(node)) ++found[at.state];
  json counts = json::object();
  for (const auto &[state, count] : found) {
    counts[std::string(name_of(lum_words::port_states, state))] = count;
  }
  return counts;
}

json show_node(driver &node) {
  const lum_linux::node_description &description = node.node();
  const lum_ctx &context = *lum_get_ctx();
  const auto store = lum_linux::checkpoints_status();
  const std::chrono::duration<double> uptime = node.uptime();
  return object({{"name", description.name},
                 {"rack", description.rack},
                 {"version", version()},
                 {"description", std::filesystem::absolute(description.source).string()},
                 {"started", utc_text(node.started())},
                 {"uptime_s", std::max<int64_t>(0, static_cast<int64_t>(uptime.count()))},
                 {"restart", node.restarted()},
                 {"ports", description.ports().size()},
                 {"port_states", count_states(node)},
                 {"controllers", counted_controllers()},
                 {"controllers_existing", node.platform().created_controllers()},
                 {"polling_halted", node.count().halts_polling()},
                 {"halt", show_halt(node)},
                 {"never_polled", never_polled(description)},
                 {"troubles", show_troubles(node)},
                 {"resync", __atomic_load_n(&context.resync, __ATOMIC_RELAXED) != 0},
                 {"checkpoints", show_checkpoints(store)},
                 {"store", show_store(store, description)},
                 {"events", show_event_record(node)},
                 {"traces", show_traces()}});
}

}  // namespace lumd
