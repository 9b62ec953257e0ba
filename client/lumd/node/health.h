// Whether everything in the driver that is to come round does.
#pragma once

#include <string>

namespace lumd {

class driver;

// What stands still without a reason that is known and told; empty when nothing does. A module
// never counts: polling that is switched off, or held up by a transfer, or left out by the
// library's count stands for a reason. Waits for nothing.
std::string what_stands_still(driver &node);

}  // namespace lumd
