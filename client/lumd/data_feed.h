// Hands what the library has polled to the performance-monitoring and alarm services.
#pragma once

#include "cages.h"

namespace lumd {

// Feeds every controller whose module has readings. Waits for nothing.
void feed_monitoring(const cage_watch &cages);

}  // namespace lumd
