// Texts that are made of fields.
#pragma once

#include <string_view>
#include <vector>

namespace lumd {

// What stands between the separators, which may be nothing: one more than there are separators. The
// parts lie within the text.
std::vector<std::string_view> split(std::string_view text, char separator);

}  // namespace lumd
