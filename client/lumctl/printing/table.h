// Tables whose records may take several lines each, every kind of line with columns of its own.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "terminal/style.h"

namespace lumctl {

struct cell {
  std::string text;
  colour paint = colour::none;
  bool changed = false;  // since the picture before
};
using row = std::vector<cell>;

struct column {
  std::string title;
  bool right = false;  // numbers stand to the right
  bool ticks = false;  // an age: changes with every look, which nobody needs to be told
};

constexpr std::size_t column_gap = 2;  // blanks between two columns

struct line_format {
  std::vector<column> columns;
  std::size_t indent = 0;
};

struct record {
  std::vector<std::vector<row>> lines;  // for each line format its rows, possibly none
  std::string note = {};                // stands alone below them; may be empty
  std::vector<cell> texts = {};         // before the note, each from a line's start
  std::string subject = {};             // what it is about, as no other record of the table is
};

struct table {
  std::vector<line_format> formats;
  std::vector<record> records;
};

// Columns that the table takes unless it folds.
std::size_t table_width(const table &shown, const style &where);

// The lines with the titles, and everything below them. Lines that are wider than the style's
// columns go on in the next one, indented, between two cells; notes between two words.
struct table_text {
  std::string titles;
  std::string rows;
};
table_text render_apart(const table &shown, const style &where);
std::string render(const table &shown, const style &where);

// Takes a column out of one kind of line.
void erase_column(table &shown, std::size_t line, std::size_t which);

// Marks the cells of `shown` that are not as they were in `before`, record by record.
void mark_changes(table &shown, const table &before);

}  // namespace lumctl
