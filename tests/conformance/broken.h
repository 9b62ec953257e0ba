// A platform that does one thing wrong, the one that LUM_BROKEN names; unset, none.
#pragma once

#include <cstdlib>
#include <string_view>

#include "lum.h"

inline bool broken(std::string_view fault) {
  const char *named = std::getenv("LUM_BROKEN");
  return named != nullptr && named == fault;
}

// The callback table with what is wrong with it.
lum_platform_cbs broken_callbacks();
