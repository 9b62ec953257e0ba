// Text that a terminal can be trusted with.
#pragma once

#include <string>

namespace lum_client {

// The text with everything that would steer a terminal replaced: modules may hold any bytes.
std::string printable(const std::string &text);

}  // namespace lum_client
