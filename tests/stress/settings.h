// How long and how hard a stress test runs.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace stress {

#ifdef LUM_SANITIZED
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

// A number from the environment, or `otherwise` when it is not there or not above 0.
inline uint64_t setting(const char *name, uint64_t otherwise) {
  const char *text = std::getenv(name);
  const uint64_t value = text == nullptr ? 0 : std::strtoull(text, nullptr, 10);
  return value == 0 ? otherwise : value;
}

// The same, with a default for builds that are many times slower.
inline uint64_t setting(const char *name, uint64_t otherwise, uint64_t when_sanitized) {
  return setting(name, sanitized ? when_sanitized : otherwise);
}

}  // namespace stress
