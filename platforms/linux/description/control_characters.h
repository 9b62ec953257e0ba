// Characters that would steer a terminal: those below a blank, DEL, and U+0080 to U+009F.
#pragma once

#include <string>
#include <string_view>

namespace lum_linux {

bool has_control_character(std::string_view text);

// The text with a question mark for each of them.
std::string without_control_characters(std::string_view text);

}  // namespace lum_linux
