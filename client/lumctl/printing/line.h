// A titled line of a text.
#pragma once

#include <fmt/format.h>

#include <string>

#include "terminal/glyphs.h"
#include "terminal/style.h"

namespace lumctl {

constexpr std::size_t width_of_title = 15;  // with the blank behind it
constexpr std::size_t hang_of_notes = 4;

// A line without a title goes on with the one above it.
inline std::string line(const std::string &title, const std::string &value) {
  return fmt::format("{:<14} {}\n", title.empty() ? "" : title + ":", value);
}

// Such lines, what is too long for the terminal going on below where it began.
inline std::string folded_lines(const std::string &lines, const style &output) {
  return wrapped_lines(lines, output.columns, width_of_title);
}

// What stands below a table.
inline std::string folded_notes(const std::string &lines, const style &output) {
  return wrapped_lines(lines, output.columns, hang_of_notes);
}

}  // namespace lumctl
