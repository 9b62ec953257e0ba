// Lengths of performance monitoring's bins.
#pragma once

#include <array>
#include <string_view>

namespace lum_words {

inline constexpr std::string_view quarter_bin = "15min";
inline constexpr std::string_view day_bin = "24h";
inline constexpr std::array bins = {quarter_bin, day_bin};

}  // namespace lum_words
