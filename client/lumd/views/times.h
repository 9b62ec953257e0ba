// Times as the API shows them.
#pragma once

#include <chrono>
#include <string>

namespace lumd {

// How long ago, to the millisecond; never below 0.
double seconds_since(std::chrono::steady_clock::time_point then);

double seconds_of(std::chrono::steady_clock::duration duration);

// Since the epoch, to the tenth of a second: moments that do not move look the same each time.
double epoch_seconds(std::chrono::system_clock::time_point time);

// "2026-01-31T12:00:00Z"
std::string utc_text(std::chrono::system_clock::time_point time);
// "2026-01-31T12:00:00.123Z"
std::string utc_text_ms(std::chrono::system_clock::time_point time);

}  // namespace lumd
