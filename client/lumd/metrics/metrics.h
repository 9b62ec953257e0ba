// Everything that is counted and measured, as text; docs/metrics.md lists the names.
#pragma once

#include <string>

#include "metrics/metrics_format.h"

namespace lumd {

class driver;

// One scrape: looks at what is stored, and touches no module. Waits for the disk.
std::string metrics_text(driver &node, metrics_format format);

}  // namespace lumd
