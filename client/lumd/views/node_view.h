// The node and its driver as the API shows them.
#pragma once

#include "views/json.h"

namespace lumd {

class driver;

// How many ports are in each state, by its name.
json count_states(driver &node);

// Waits for the disk.
json show_node(driver &node);

}  // namespace lumd
