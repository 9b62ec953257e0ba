// The scripted trace service: the handles that it gives the library's channels.
#pragma once

#include <string>
#include <vector>

#include "ctrace.h"

namespace support {

inline constexpr ctrace_handle error_channel = 0x101;
inline constexpr ctrace_handle info_channel = 0x102;
inline constexpr ctrace_handle debug_channel = 0x103;
inline constexpr ctrace_handle periodic_channel = 0x104;

// The catalogue digests that channels were opened with, in order.
extern std::vector<std::string> &channel_digests;

}  // namespace support
