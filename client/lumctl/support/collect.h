// What goes into a support bundle.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "api/destination.h"
#include "support/bundle.h"

namespace lumctl {

// The driver, which may be gone or hang.
struct support_wish {
  destination driver;
  std::chrono::milliseconds patience;  // with each answer
  std::string config;                  // the description; empty: the driver's, or the service's
};

struct driver_findings {
  std::string why_gone;  // why no driver answers; empty when one does
  std::string version;   // of the driver; empty when it is not known
  std::filesystem::path description;
  std::filesystem::path state_folder;
  std::filesystem::path trace_folder;
};

// Every view, the metrics and the modules with the pages that the library reads. Once the driver
// has not answered it is asked nothing more.
driver_findings collect_from_driver(const support_wish &wanted, bundle &into);

// The description, the ends of the traces, a list of the files and the versions, as far as it is
// known where they are.
void collect_from_node(const support_wish &wanted, driver_findings found, bundle &into);

}  // namespace lumctl
