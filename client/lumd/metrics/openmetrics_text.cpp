#include "metrics/openmetrics_text.h"

#include <fmt/format.h>

#include <cmath>
#include <string_view>

namespace lumd {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\' || c == '"') result += '\\';
    result += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return result;
}

std::string number(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  return fmt::format("{}", value);
}

// A counter's samples end in _total and a fact's in _info, their families do not.
std::string family_name(const std::string &name, std::string_view suffix) {
  return name.ends_with(suffix) ? name.substr(0, name.size() - suffix.size()) : name;
}

std::string labels_of(const ClientMetric &metric) {
  std::string text;
  for (const auto &label : metric.label) {
    text += fmt::format("{}{}=\"{}\"", text.empty() ? "" : ",", label.name, escaped(label.value));
  }
  return text.empty() ? text : "{" + text + "}";
}

void append(std::string &page, const MetricFamily &family, std::string_view type,
            std::string_view suffix) {
  const std::string name = family_name(family.name, suffix);
  page += fmt::format("# TYPE {} {}\n# HELP {} {}\n", name, type, name, escaped(family.help));
  for (const ClientMetric &metric : family.metric) {
    const double value =
        family.type == MetricType::Counter ? metric.counter.value : metric.gauge.value;
    page += fmt::format("{}{}{} {}\n", name, suffix, labels_of(metric), number(value));
  }
}

}  // namespace

std::string openmetrics_text(const std::vector<MetricFamily> &families,
                             const std::set<std::string> &facts) {
  std::string page;
  for (const MetricFamily &family : families) {
    if (family.type == MetricType::Counter) {
      append(page, family, "counter", "_total");
    } else if (family.type == MetricType::Gauge && facts.contains(family.name)) {
      append(page, family, "info", "_info");
    } else if (family.type == MetricType::Gauge) {
      append(page, family, "gauge", "");
    }
  }
  return page + "# EOF\n";
}

}  // namespace lumd
