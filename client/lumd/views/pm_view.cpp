#include "views/pm_view.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "json/object.h"
#include "lum_linux/stores.h"
#include "node/driver.h"
#include "node/port_data.h"
#include "node/port_snapshot.h"
#include "node/readings.h"
#include "views/polling_view.h"
#include "views/times.h"
#include "words/bins.h"
#include "words/plausible.h"

namespace lumd {
namespace {

using lum_client::object;

using lum_linux::pm_bin;

double to_hundredths(double value) { return std::round(value * 100) / 100; }

json in_unit(const lum_linux::pm_statistics &kept, const kept_value &as) {
  const auto shown = [&](double number) { return to_hundredths(number / as.per_unit); };
  return object({{"current", shown(kept.current)},
                 {"minimum", shown(kept.minimum)},
                 {"maximum", shown(kept.maximum)},
                 {"average", shown(kept.average)}});
}

// Null for what cannot be told.
json in_dbm(const lum_linux::pm_statistics &kept) {
  const auto shown = [](double number) -> json {
    const auto dbm = kept_power_dbm(number);
    return dbm ? json(*dbm) : json();
  };
  return object({{"current", shown(kept.current)},
                 {"minimum", shown(kept.minimum)},
                 {"maximum", shown(kept.maximum)},
                 {"average", shown(kept.average)}});
}

// What was measured is between these two.
bool is_plausible(const lum_linux::pm_statistics &kept) {
  return kept_power_dbm(kept.maximum).value_or(lum_words::plausible_power_dbm.lowest) <=
         lum_words::plausible_power_dbm.highest;
}

// Without samples there are no numbers.
json show_value(std::size_t number, const pm_bin &bin) {
  const kept_value &as = kept_values()[number];
  json shown = object({{"name", as.name}});
  const bool known = bin.samples != 0;
  const lum_linux::pm_statistics &kept = bin.values[number];
  if (as.is_power()) {
    shown["microwatt"] = known ? in_unit(kept, as) : json();
    shown["dbm"] = known ? in_dbm(kept) : json();
    shown["plausible"] = !known || is_plausible(kept);
  } else {
    shown["step"] = 1 / as.per_unit;
    shown["value"] = known ? in_unit(kept, as) : json();
  }
  return shown;
}

json show_bin(const pm_bin &bin, std::string_view length) {
  json values = json::array();
  for (std::size_t i = 0; i < lum_linux::pm_value_count; ++i) values.push_back(show_value(i, bin));
  return object({{"length", length},
                 {"length_s", bin.length.count()},
                 {"start", utc_text(bin.start)},
                 {"samples", bin.samples},
                 {"partial", bin.partial},
                 {"tested", bin.tested},
                 {"values", std::move(values)}});
}

json show_bins(const lum_linux::pm_interface &interface, std::optional<pm_bins> bins) {
  json shown = json::array();
  if (bins != pm_bins::day) shown.push_back(show_bin(interface.quarter, lum_words::quarter_bin));
  if (bins != pm_bins::quarter) shown.push_back(show_bin(interface.day, lum_words::day_bin));
  if (bins == pm_bins::quarter) {
    for (const pm_bin &bin : interface.quarters)
      shown.push_back(show_bin(bin, lum_words::quarter_bin));
  }
  if (bins == pm_bins::day) {
    for (const pm_bin &bin : interface.days) shown.push_back(show_bin(bin, lum_words::day_bin));
  }
  return shown;
}

}  // namespace

std::optional<std::chrono::steady_clock::duration> age_of_kept(driver &node, uint32_t ifhandle) {
  const auto fed = node.feed().fed(ifhandle);
  if (!fed) return std::nullopt;
  return std::chrono::steady_clock::now() - fed->ended;
}

std::optional<pm_bins> pm_bins_of(std::string_view name) {
  if (name == lum_words::quarter_bin) return pm_bins::quarter;
  if (name == lum_words::day_bin) return pm_bins::day;
  return std::nullopt;
}

json show_pm(driver &node, const port_list &ports, std::optional<pm_bins> bins) {
  json interfaces = json::array();
  each_sub_port(ports, [&](const auto &port, const port_copy &copy, std::size_t sub_port) {
    const uint32_t ifhandle = copy.data.sub_port[sub_port].ifhandle;
    const auto age = age_of_kept(node, ifhandle);
    const auto pm = lum_linux::pm_find(ifhandle);
    if (!pm) return;
    json shown = object({{"port", port.name},
                         {"sub_port", sub_port},
                         {"ifname", pm->name},
                         {"ifhandle", pm->ifhandle}});
    if (pm->latest && age) shown["age_s"] = seconds_of(*age);
    shown["polled"] = poll_of(node, port.rsip).has_value() && copy.data.inserted != 0;
    shown["bins"] = show_bins(*pm, bins);
    interfaces.push_back(std::move(shown));
  });
  return object({{"interfaces", std::move(interfaces)}, {"halt", show_halt(node)}});
}

}  // namespace lumd
