#include "views/alarm_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "json/object.h"
#include "lum_linux/stores.h"
#include "node/alarms.h"
#include "node/driver.h"
#include "node/port_snapshot.h"
#include "node/readings.h"
#include "views/action_view.h"
#include "views/polling_view.h"
#include "views/times.h"

namespace lumd {
namespace {

using lum_client::object;

using lum_words::alarm;
using lum_words::alarms;

std::string name_of_bit(unsigned bit) {
  const auto found = std::find_if(alarms.begin(), alarms.end(), [bit](const alarm &kind) {
    return bit_of(kind) == uint64_t{1} << bit;
  });
  return found == alarms.end() ? fmt::format("bit-{}", bit) : std::string(found->name);
}

// How often each alarm has been raised since the counters were set back.
json show_raise_counts(const ptah_al_all &all) {
  json counts = json::object();
  for (std::size_t bit = 0; bit < lum_linux::ptah_counted_bits; ++bit) {
    const uint32_t count = all.values[lum_linux::ptah_first_raise + bit];
    if (count > 0) counts[name_of_bit(static_cast<unsigned>(bit))] = count;
  }
  return counts;
}

// Null as long as it is not known whether there is a module.
json show_inserted(driver &node, const lum_linux::port_description &port, const port_copy &copy) {
  const auto module = node.platform().modules().status(port.rsip);
  if (!module || !knows_presence(*module)) return nullptr;
  return copy.data.inserted != 0;
}

// A controller's alarms and counters, or null when the store does not know it. The port is one that
// `copy` is of.
json show_sub_port(driver &node, const lum_linux::port_description &port, const port_copy &copy,
                   std::size_t sub_port) {
  const uint32_t ifhandle = copy.data.sub_port[sub_port].ifhandle;
  // Before what is stored: an old bitmap must not have a new age.
  const json told = show_alarms_age(node, port.rsip, ifhandle);
  const auto stored = ifhandle == 0 ? std::nullopt : lum_linux::ptah_find(ifhandle);
  if (!stored) return nullptr;
  json shown = object({{"port", port.name},
                       {"sub_port", sub_port},
                       {"ifname", stored->name},
                       {"ifhandle", ifhandle},
                       {"inserted", show_inserted(node, port, copy)},
                       {"bitmap", stored->all.bitmap},
                       {"raised", alarm_names(stored->all.bitmap)},
                       {"injected", injected_alarms(node, ifhandle)}});
  if (told.is_null()) {
    shown["bitmap"] = nullptr;
    shown["raised"] = nullptr;
  } else {
    shown.update(told);
  }
  if (stored->changed) shown["changed_age_s"] = seconds_since(stored->changed->moment);
  if (stored->cleared) shown["cleared_age_s"] = seconds_since(stored->cleared->moment);
  shown["counters"] =
      object({{"publishes", stored->all.values[lum_linux::ptah_publishes]},
              {"bitmap_changes", stored->all.values[lum_linux::ptah_bitmap_changes]},
              {"raised", show_raise_counts(stored->all)}});
  return shown;
}

json show_kinds() {
  json kinds = json::array();
  for (const alarm &kind : alarms) {
    kinds.push_back(object({{"name", kind.name},
                            {"bit", bit_of(kind)},
                            {"test_id", kind.test_id},
                            {"sub_port_1_only", kind.sub_port_1_only},
                            {"source", kind.source}}));
  }
  return kinds;
}

// The test offsets that are set, as they are added to the module's words.
json show_offsets(const lum_test_injection &injection) {
  json shown = json::object();
  const auto readings = monitored_readings();
  for (std::size_t i = 0; i < readings.size(); ++i) {
    const uint16_t offset = injection.pm_test_offsets[i];
    if (offset != 0) shown[std::string(readings[i].word().name)] = offset;
  }
  return shown;
}

}  // namespace

json injected_alarms(driver &node, uint32_t ifhandle) {
  const auto fed = node.feed().fed(ifhandle);
  return alarm_names(fed ? fed->forced_alarms : 0);
}

json show_alarms_age(driver &node, uint32_t rsip, uint32_t ifhandle) {
  const auto fed = node.feed().fed(ifhandle);
  if (!fed) return nullptr;
  return object({{"alarms_age_s", seconds_since(fed->ended)},
                 {"waiting", fed->ended < node.cages().seen(rsip).begun}});
}

json alarm_names(uint64_t bitmap) {
  json names = json::array();
  for (unsigned bit = 0; bit < 64; ++bit) {
    if ((bitmap >> bit & 1) != 0) names.push_back(name_of_bit(bit));
  }
  return names;
}

json show_alarms(driver &node, bool all) {
  json interfaces = json::array();
  std::size_t known = 0;
  std::size_t unknown = 0;
  std::size_t waiting = 0;
  each_sub_port(node.node().ports(),
                [&](const auto &port, const port_copy &copy, std::size_t sub_port) {
                  json shown = show_sub_port(node, port, copy, sub_port);
                  if (shown.is_null()) return;
                  ++(shown["bitmap"].is_null() ? unknown : known);
                  if (shown.contains("waiting") && shown["waiting"] == true) ++waiting;
                  const bool is_raised = !shown["bitmap"].is_null() && shown["bitmap"] != 0;
                  if (all || is_raised) interfaces.push_back(std::move(shown));
                });
  return object({{"interfaces", std::move(interfaces)},
                 {"known", known},
                 {"unknown", unknown},
                 {"waiting", waiting},
                 {"halt", show_halt(node)},
                 {"kinds", show_kinds()}});
}

json show_alarm_test(const alarm_test_report &report, const alarm_test_request &request,
                     const std::string &text) {
  json shown = object({{"result", result_of(report.rc)},
                       {"port", report.port->name},
                       {"sub_port", request.place.sub_port},
                       {"text", text},
                       {"alarms", alarm_names(report.injected.test_alarm_bits)},
                       {"offsets", show_offsets(report.injected)}});
  conclude(shown, report);
  return shown;
}

}  // namespace lumd
