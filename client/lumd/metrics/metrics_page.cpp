#include "metrics/metrics_page.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/text_serializer.h>

#include <nlohmann/json.hpp>

#include "base/printable.h"
#include "metrics/openmetrics_text.h"
#include "views/json.h"

namespace lumd {
namespace {

// The page is UTF-8, what a module says about itself may be anything.
std::string as_utf8(const std::string &text) {
  return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace))
      .get<std::string>();
}

// Pages are looked at in terminals too.
metric_labels as_text(const metric_labels &labels) {
  metric_labels result;
  for (const auto &[name, value] : labels) result[name] = lum_client::printable(as_utf8(value));
  return result;
}

}  // namespace

void metrics_page::gauge(const std::string &name, const std::string &help,
                         const metric_labels &labels, double value) {
  prometheus::BuildGauge()
      .Name(name)
      .Help(help)
      .Register(registry_)
      .Add(as_text(labels))
      .Set(value);
}

void metrics_page::counter(const std::string &name, const std::string &help,
                           const metric_labels &labels, double value) {
  prometheus::BuildCounter()
      .Name(name)
      .Help(help)
      .Register(registry_)
      .Add(as_text(labels))
      .Increment(value);
}

void metrics_page::fact(const std::string &name, const std::string &help,
                        const metric_labels &labels) {
  facts_.insert(name);
  gauge(name, help, labels, 1);
}

std::string metrics_page::text(metrics_format format) const {
  const auto families = registry_.Collect();
  if (format == metrics_format::openmetrics) return openmetrics_text(families, facts_);
  return prometheus::TextSerializer().Serialize(families);
}

}  // namespace lumd
