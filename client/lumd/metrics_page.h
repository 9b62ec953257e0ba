// One page of metrics in the Prometheus text format.
#pragma once

#include <prometheus/registry.h>

#include <map>
#include <string>

namespace lumd {

using metric_labels = std::map<std::string, std::string>;

// A page is made for each scrape: everything shown is kept elsewhere.
class metrics_page {
 public:
  // Add one sample. A name has one help text and is either a gauge or a counter. Label values may
  // hold any bytes. Counters end in _total and are not below 0.
  void gauge(const std::string &name, const std::string &help, const metric_labels &labels,
             double value);
  void counter(const std::string &name, const std::string &help, const metric_labels &labels,
               double value);

  std::string text() const;

 private:
  prometheus::Registry registry_;
};

// The content type that the text goes out with.
inline constexpr const char *metrics_content_type = "text/plain; version=0.0.4; charset=utf-8";

}  // namespace lumd
