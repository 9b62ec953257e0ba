// Documents from outside, which may be anything.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace lum_json {

// Deeper than any document that the API knows, and no deeper than a thread can take apart again.
inline constexpr int deepest = 32;

// The document in `text`; discarded, with `why` ("is not valid JSON") saying what is wrong with it,
// when it is not valid, gives a member twice or has more than `deepest` arrays and objects in each
// other. What is too deep is never built.
nlohmann::ordered_json read(std::string_view text, std::string &why);

}  // namespace lum_json
