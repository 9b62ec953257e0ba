// The version of the JSON documents that the API answers with.
#pragma once

namespace lum_words {

// Another number when a member goes, gets another name, type, unit or meaning, or may be missing
// where it never was. Members that come leave it as it is.
inline constexpr int api_schema = 1;

}  // namespace lum_words
