// Everything that is counted and measured, as text; docs/metrics.md lists the names.
#pragma once

#include <string>

namespace lumd {

class driver;

// One scrape: looks at what is stored, and touches no module. Waits for the disk.
std::string metrics_text(driver &node);
const char *metrics_content_type();

}  // namespace lumd
