// Hands what the library has polled to the performance-monitoring and alarm services.
#pragma once

namespace lumd {

// Feeds every controller whose module is there and has been polled. Waits for nothing.
void feed_monitoring();

}  // namespace lumd
