#include "metrics/metrics_page.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/text_serializer.h>

#include <nlohmann/json.hpp>

#include "metrics/openmetrics_text.h"
#include "views/json.h"

namespace lumd {
namespace {

// The page is UTF-8, what a module says about itself may be anything.
std::string as_utf8(const std::string &text) {
  return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace))
      .get<std::string>();
}

// Without characters that steer a terminal: pages are looked at there too.
std::string as_text(const std::string &text) {
  const std::string utf8 = as_utf8(text);
  std::string result;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    const auto next = static_cast<unsigned char>(i + 1 < utf8.size() ? utf8[i + 1] : 0);
    const bool two_bytes = byte == 0xC2 && next >= 0x80 && next < 0xA0;
    const bool steers = byte < 0x20 || byte == 0x7F || two_bytes;
    result += steers ? '?' : utf8[i];
    if (two_bytes) ++i;
  }
  return result;
}

metric_labels as_text(const metric_labels &labels) {
  metric_labels result;
  for (const auto &[name, value] : labels) result[name] = as_text(value);
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
