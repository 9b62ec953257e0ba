#include "views/pm_view.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "lum_linux/stores.h"
#include "node/port_data.h"
#include "views/times.h"
#include "words/bins.h"

namespace lumd {
namespace {

using lum_linux::pm_bin;

json show_value(std::size_t number, const pm_bin &bin) {
  const auto value = static_cast<lum_linux::pm_value>(number);
  json shown = {{"name", lum_linux::pm_value_name(value)},
                {"unit", lum_linux::pm_value_unit(value)},
                {"current", nullptr},
                {"minimum", nullptr},
                {"maximum", nullptr},
                {"average", nullptr}};
  if (bin.samples == 0) return shown;
  const lum_linux::pm_statistics &statistics = bin.values[number];
  shown["current"] = statistics.current;
  shown["minimum"] = statistics.minimum;
  shown["maximum"] = statistics.maximum;
  shown["average"] = std::round(statistics.average * 100) / 100;
  return shown;
}

json show_bin(const pm_bin &bin, std::string_view length) {
  json values = json::array();
  for (std::size_t i = 0; i < lum_linux::pm_value_count; ++i) values.push_back(show_value(i, bin));
  return {
      {"length", length},       {"length_s", bin.length.count()}, {"start", utc_text(bin.start)},
      {"samples", bin.samples}, {"partial", bin.partial},         {"values", std::move(values)}};
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

std::optional<pm_bins> pm_bins_of(std::string_view name) {
  if (name == lum_words::quarter_bin) return pm_bins::quarter;
  if (name == lum_words::day_bin) return pm_bins::day;
  return std::nullopt;
}

json show_pm(const port_list &ports, std::optional<pm_bins> bins) {
  json interfaces = json::array();
  each_sub_port(ports, [&](const auto &port, const port_copy &copy, std::size_t sub_port) {
    const auto pm = lum_linux::pm_find(copy.data.sub_port[sub_port].ifhandle);
    if (!pm) return;
    json shown = {{"port", port.name},
                  {"sub_port", sub_port},
                  {"ifname", pm->name},
                  {"ifhandle", pm->ifhandle}};
    if (pm->latest) shown["age_s"] = seconds_since(pm->updated.moment);
    shown["bins"] = show_bins(*pm, bins);
    interfaces.push_back(std::move(shown));
  });
  return {{"interfaces", std::move(interfaces)}};
}

}  // namespace lumd
