// Tables whose records may take several lines each, every kind of line with columns of its own.
#pragma once

#include <string>
#include <vector>

#include "terminal/style.h"

namespace lumctl {

struct cell {
  std::string text;
  colour paint = colour::none;
};
using row = std::vector<cell>;

struct column {
  std::string title;
  bool right = false;  // numbers stand to the right
};

struct line_format {
  std::vector<column> columns;
  std::size_t indent = 0;
};

struct record {
  std::vector<std::vector<row>> lines;  // for each line format its rows, possibly none
  std::string note;                     // stands alone below them; may be empty
};

// Columns that the table takes.
std::size_t table_width(const std::vector<line_format> &formats,
                        const std::vector<record> &records);

// The table with its titles.
std::string render(const std::vector<line_format> &formats, const std::vector<record> &records,
                   const style &where);

}  // namespace lumctl
