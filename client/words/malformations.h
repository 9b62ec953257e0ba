// How the interface manager may spoil a reply.
#pragma once

#include "words/names.h"

namespace lum_words {

enum class malformation_id { garbage, truncated, missing_member, absent };

struct malformation {
  malformation_id id;
  std::string_view name;
};

inline constexpr std::array<malformation, 4> malformations = {{
    {malformation_id::garbage, "garbage"},
    {malformation_id::truncated, "truncated"},
    {malformation_id::missing_member, "missing-member"},
    {malformation_id::absent, "absent"},
}};

}  // namespace lum_words
