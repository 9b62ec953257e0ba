// A titled line of a text.
#pragma once

#include <fmt/format.h>

#include <string>

namespace lumctl {

// A line without a title goes on with the one above it.
inline std::string line(const std::string &title, const std::string &value) {
  return fmt::format("{:<14} {}\n", title.empty() ? "" : title + ":", value);
}

}  // namespace lumctl
