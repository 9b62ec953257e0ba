// What a port's controllers can be told.
#pragma once

#include <array>
#include <string_view>

namespace lum_words {

inline constexpr std::string_view controller_up = "up";
inline constexpr std::string_view controller_down = "down";
inline constexpr std::array controller_states = {controller_up, controller_down};

}  // namespace lum_words
