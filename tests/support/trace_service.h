// The handles that the scripted trace service gives the library's channels.
#pragma once

#include "ctrace.h"

namespace support {

inline constexpr ctrace_handle error_channel = 0x101;
inline constexpr ctrace_handle info_channel = 0x102;
inline constexpr ctrace_handle debug_channel = 0x103;
inline constexpr ctrace_handle periodic_channel = 0x104;

}  // namespace support
