// The query of a request, and the encoding of its path.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace lumd {

// Takes %XX apart; nothing when a % is followed by anything else.
std::optional<std::string> percent_decode(std::string_view text);

using query_members = std::map<std::string, std::string, std::less<>>;  // decoded

// Reads what stands behind the question mark into `query`. Returns what is wrong with it: an
// encoding, a member that is given twice, or one that is not among `known`; empty when nothing is.
std::string read_query(std::string_view text, std::span<const std::string_view> known,
                       query_members &query);

}  // namespace lumd
