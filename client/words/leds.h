// What a port's LED shows.
#pragma once

#include <string_view>

namespace lum_words {

inline constexpr std::string_view led_off = "off";
inline constexpr std::string_view led_normal = "normal";
inline constexpr std::string_view led_fault = "fault";
inline constexpr std::string_view led_other = "other";

}  // namespace lum_words
