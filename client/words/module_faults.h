// Words of a fault script, as the Linux platform reads it; those that end in '=' take a number.
#pragma once

#include <array>
#include <string_view>

namespace lum_words {

inline constexpr std::array<std::string_view, 14> module_faults = {
    "refuse-every=", "refuse-percent=",
    "code=",         "only=reads",
    "only=writes",   "delay-ms=",
    "hang",          "flip-every=",
    "flip-percent=", "flip-bits=",
    "half-every=",   "remove-after=",
    "insert-after=", "seed="};
inline constexpr std::string_view no_module_fault = "none";

}  // namespace lum_words
