// Metrics in the OpenMetrics text format, version 1.0.0.
#pragma once

#include <prometheus/metric_family.h>

#include <set>
#include <string>
#include <vector>

namespace lumd {

// The page, with its end. `facts` names the gauges that are told by their labels alone; they end in
// _info, counters in _total. Other kinds than gauges and counters are left out.
std::string openmetrics_text(const std::vector<prometheus::MetricFamily> &families,
                             const std::set<std::string> &facts);

}  // namespace lumd
