// Text that a terminal can be trusted with, and the room that it takes there.
#pragma once

#include <cstddef>
#include <string>

namespace lumctl {

// The text with everything that would steer a terminal replaced: modules may hold any bytes.
std::string printable(const std::string &text);

// Characters that the text takes on the terminal.
std::size_t display_width(const std::string &text);

}  // namespace lumctl
