// Texts as a terminal shows them: the columns that they take, and where they can be parted.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace lumctl {

// What a terminal shows in one place: a character with its bytes, or a change of colours, which
// takes no column.
struct glyph {
  std::string_view bytes;
  std::size_t width = 0;  // columns: 0, 1 or 2
};

std::vector<glyph> glyphs_of(std::string_view text);

// Columns that the text takes.
std::size_t display_width(std::string_view text);

// The text in at most so many columns, an ellipsis in place of its middle: names differ at their
// ends most often.
std::string shortened(const std::string &text, std::size_t width);

// The text in lines of at most so many columns, parted at blanks, or within words that are longer.
// Every line but the first begins with `hang` blanks. A width of 0 is no bound.
std::string wrapped(std::string_view text, std::size_t width, std::size_t hang);

// Each of the text's lines so.
std::string wrapped_lines(std::string_view text, std::size_t width, std::size_t hang);

// The text without changes of colours.
std::string uncoloured(std::string_view text);

}  // namespace lumctl
