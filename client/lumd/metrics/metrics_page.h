// One page of metrics in the text format of Prometheus.
#pragma once

#include <prometheus/metric_family.h>

#include <map>
#include <string>
#include <vector>

namespace lumd {

using metric_labels = std::map<std::string, std::string>;

// A page is made for each scrape: everything shown is kept elsewhere. Metrics and their samples
// stand in the order in which they were added.
class metrics_page {
 public:
  static constexpr const char *content_type = "text/plain; version=0.0.4; charset=utf-8";

  // Add one sample. A name has one help text and is always added the same way. Label values may
  // hold any bytes. Counters end in _total and are not below 0; a fact ends in _info and is told by
  // its labels alone.
  void gauge(const std::string &name, const std::string &help, const metric_labels &labels,
             double value);
  void counter(const std::string &name, const std::string &help, const metric_labels &labels,
               double value);
  void fact(const std::string &name, const std::string &help, const metric_labels &labels) {
    gauge(name, help, labels, 1);
  }

  std::string text() const;

 private:
  prometheus::ClientMetric &add(const std::string &name, const std::string &help,
                                prometheus::MetricType type, const metric_labels &labels);

  std::vector<prometheus::MetricFamily> families_;
  std::map<std::string, std::size_t> places_;  // by name
};

}  // namespace lumd
