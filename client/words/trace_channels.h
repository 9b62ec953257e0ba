// The trace channels that the library opens.
#pragma once

#include <array>
#include <string_view>

namespace lum_words {

inline constexpr std::string_view error_channel = "lum_error";
inline constexpr std::array trace_channels = {error_channel, std::string_view("lum_info"),
                                              std::string_view("lum_debug"),
                                              std::string_view("lum_periodic")};

}  // namespace lum_words
