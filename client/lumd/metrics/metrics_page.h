// One page of metrics as Prometheus reads it.
#pragma once

#include <prometheus/registry.h>

#include <map>
#include <set>
#include <string>

#include "metrics/metrics_format.h"

namespace lumd {

using metric_labels = std::map<std::string, std::string>;

// A page is made for each scrape: everything shown is kept elsewhere.
class metrics_page {
 public:
  // Add one sample. A name has one help text and is always added the same way. Label values may
  // hold any bytes. Counters end in _total and are not below 0; a fact ends in _info and is told by
  // its labels alone.
  void gauge(const std::string &name, const std::string &help, const metric_labels &labels,
             double value);
  void counter(const std::string &name, const std::string &help, const metric_labels &labels,
               double value);
  void fact(const std::string &name, const std::string &help, const metric_labels &labels);

  std::string text(metrics_format format) const;

 private:
  prometheus::Registry registry_;
  std::set<std::string> facts_;  // gauges to Prometheus
};

}  // namespace lumd
