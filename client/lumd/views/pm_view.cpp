#include "pm_view.h"

#include <cmath>

#include "times.h"

namespace lumd {
namespace {

using lum_linux::pm_bin;

constexpr std::string_view quarter_name = "15min";
constexpr std::string_view day_name = "24h";

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

}  // namespace

std::optional<pm_bins> pm_bins_of(std::string_view name) {
  if (name == quarter_name) return pm_bins::quarter;
  if (name == day_name) return pm_bins::day;
  return std::nullopt;
}

json show_pm(const lum_linux::pm_interface &interface, std::optional<pm_bins> bins) {
  json shown = json::array();
  if (bins != pm_bins::day) shown.push_back(show_bin(interface.quarter, quarter_name));
  if (bins != pm_bins::quarter) shown.push_back(show_bin(interface.day, day_name));
  if (bins == pm_bins::quarter) {
    for (const pm_bin &bin : interface.quarters) shown.push_back(show_bin(bin, quarter_name));
  }
  if (bins == pm_bins::day) {
    for (const pm_bin &bin : interface.days) shown.push_back(show_bin(bin, day_name));
  }
  return shown;
}

}  // namespace lumd
