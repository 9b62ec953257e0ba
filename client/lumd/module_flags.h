// What a module's flag bytes say.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lumd {

// The raised flags by name, in the order of the library's flag bytes. A bit that nothing is known
// of is named after its place.
std::vector<std::string> raised_flags(std::span<const uint8_t> flags);

}  // namespace lumd
