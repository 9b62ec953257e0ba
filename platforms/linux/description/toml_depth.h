// How deep the keys of a TOML text go, found out before anything is built of them: what a parser
// builds is taken apart again by functions that call themselves.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace lum_linux {

// Of parts in one key, such as the three of a.b.c. No description has more than a few.
inline constexpr std::size_t deepest_toml_key = 16;

// The line of the first key with more parts than that, if there is one. Any bytes will do.
std::optional<uint32_t> find_deep_toml_key(std::string_view text);

}  // namespace lum_linux
