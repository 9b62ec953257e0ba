// Text that a terminal can be trusted with, and the room that it takes there.
#pragma once

#include <cstddef>
#include <string>

#include "base/printable.h"

namespace lumctl {

using lum_client::printable;

// Characters that the text takes on the terminal.
std::size_t display_width(const std::string &text);

}  // namespace lumctl
