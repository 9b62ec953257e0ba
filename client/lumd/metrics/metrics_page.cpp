#include "metrics/metrics_page.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/printable.h"
#include "views/json.h"

namespace lumd {
namespace {

// The page is UTF-8, what a module says about itself may be anything.
std::string as_utf8(const std::string &text) {
  return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace))
      .get<std::string>();
}

bool is_plain(const std::string &text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// Pages are looked at in terminals too.
std::string as_text(const std::string &value) {
  return is_plain(value) ? value : lum_client::printable(as_utf8(value));
}

}  // namespace

prometheus::ClientMetric &metrics_page::add(const std::string &name, const std::string &help,
                                            prometheus::MetricType type,
                                            const metric_labels &labels) {
  const auto [place, is_new] = places_.emplace(name, families_.size());
  if (is_new) families_.push_back({name, help, type, {}});
  auto &metric = families_[place->second].metric.emplace_back();
  for (const auto &[label, value] : labels) metric.label.push_back({label, as_text(value)});
  return metric;
}

void metrics_page::gauge(const std::string &name, const std::string &help,
                         const metric_labels &labels, double value) {
  add(name, help, prometheus::MetricType::Gauge, labels).gauge.value = value;
}

void metrics_page::counter(const std::string &name, const std::string &help,
                           const metric_labels &labels, double value) {
  add(name, help, prometheus::MetricType::Counter, labels).counter.value = value;
}

std::string metrics_page::text() const { return prometheus::TextSerializer().Serialize(families_); }

}  // namespace lumd
