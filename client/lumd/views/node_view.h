// The node and its driver as the API shows them.
#pragma once

#include "views/json.h"

namespace lumd {

class driver;

// Waits for the disk.
json show_node(driver &node);

}  // namespace lumd
