#include "views/times.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <cmath>

namespace lumd {
namespace {

double to_milliseconds(double seconds) { return std::round(seconds * 1000) / 1000; }

}  // namespace

double seconds_since(std::chrono::steady_clock::time_point then) {
  const std::chrono::duration<double> age = std::chrono::steady_clock::now() - then;
  return to_milliseconds(std::max(0.0, age.count()));
}

double seconds_of(std::chrono::steady_clock::duration duration) {
  return to_milliseconds(std::chrono::duration<double>(duration).count());
}

double epoch_seconds(std::chrono::system_clock::time_point time) {
  return std::round(std::chrono::duration<double>(time.time_since_epoch()).count() * 10) / 10;
}

std::string utc_text(std::chrono::system_clock::time_point time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}",
                     fmt::gmtime(std::chrono::system_clock::to_time_t(time)));
}

std::string utc_text_ms(std::chrono::system_clock::time_point time) {
  const auto second = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - second);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03d}Z",
                     fmt::gmtime(std::chrono::system_clock::to_time_t(second)), rest.count());
}

}  // namespace lumd
