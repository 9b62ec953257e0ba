#include "printing/table.h"

#include <algorithm>
#include <map>

#include "terminal/glyphs.h"

namespace lumctl {
namespace {

constexpr std::size_t note_indent = 4;
constexpr std::size_t fold_indent = 4;  // beyond the line that is folded

bool has_mark(const cell &one, const style &where) { return one.changed && !where.colours; }

std::size_t width_of(const cell &one, const style &where) {
  return display_width(one.text) + (has_mark(one, where) ? 1 : 0);
}

std::vector<std::size_t> widths_of(const table &shown, std::size_t line, const style &where) {
  std::vector<std::size_t> widths;
  for (const column &column : shown.formats[line].columns) {
    widths.push_back(display_width(column.title));
  }
  for (const record &record : shown.records) {
    for (const row &cells : record.lines[line]) {
      for (std::size_t i = 0; i < cells.size(); ++i) {
        widths[i] = std::max(widths[i], width_of(cells[i], where));
      }
    }
  }
  return widths;
}

// One kind of line as it comes out: how wide each column is, and which begin another line.
struct fitted_format {
  const line_format &format;
  std::vector<std::size_t> widths;
  std::vector<std::size_t> starts = {0};
};

fitted_format fit(const table &shown, std::size_t line, const style &where) {
  fitted_format fitted = {shown.formats[line], widths_of(shown, line, where)};
  std::size_t used = fitted.format.indent;
  for (std::size_t i = 0; i < fitted.widths.size(); ++i) {
    const bool first = i == fitted.starts.back();
    const std::size_t width = fitted.widths[i] + (first ? 0 : column_gap);
    if (where.columns > 0 && !first && used + width > where.columns) {
      fitted.starts.push_back(i);
      used = fitted.format.indent + fold_indent + fitted.widths[i];
    } else {
      used += width;
    }
  }
  return fitted;
}

std::string text_of(const cell &one, const style &where) {
  return one.changed ? marked(where, one.text, one.paint) : painted(where, one.text, one.paint);
}

// The cells from `from` to `to` as one line; empty when they are.
std::string render_line(const fitted_format &fitted, const row &cells, std::size_t from,
                        std::size_t to, const style &where) {
  std::string text;
  std::size_t owed = fitted.format.indent + (from > 0 ? fold_indent : 0);
  for (std::size_t i = from; i < to; ++i) {
    const bool right = fitted.format.columns[i].right;
    const std::size_t fill = fitted.widths[i] - width_of(cells[i], where);
    if (i > from) owed += column_gap;
    if (right) owed += fill;
    if (!cells[i].text.empty()) {
      // Blanks go out only when something follows them.
      text.append(owed, ' ');
      text += text_of(cells[i], where);
      owed = 0;
    }
    if (!right) owed += fill;
  }
  return text.empty() ? "" : text + "\n";
}

std::string render_row(const fitted_format &fitted, const row &cells, const style &where) {
  std::string text;
  for (std::size_t i = 0; i < fitted.starts.size(); ++i) {
    const std::size_t to =
        i + 1 < fitted.starts.size() ? fitted.starts[i + 1] : fitted.widths.size();
    text += render_line(fitted, cells, fitted.starts[i], std::min(to, cells.size()), where);
  }
  return text;
}

row titles_of(const line_format &format) {
  row result;
  for (const column &column : format.columns) result.push_back({column.title, colour::strong});
  return result;
}

std::string render_text(const cell &text, const style &where) {
  const std::string indent(note_indent, ' ');
  const std::string lines = wrapped(indent + text.text, where.columns, note_indent);
  return painted(where, lines, text.paint) + "\n";
}

// Rows of the same kind of line are compared where they have the same columns.
void mark_line(std::vector<row> &rows, const std::vector<row> &before, const line_format &format) {
  for (std::size_t i = 0; i < rows.size() && i < before.size(); ++i) {
    if (rows[i].size() != before[i].size()) continue;
    for (std::size_t k = 0; k < rows[i].size(); ++k) {
      rows[i][k].changed = !format.columns[k].ticks && rows[i][k].text != before[i][k].text;
    }
  }
}

}  // namespace

std::size_t table_width(const table &shown, const style &where) {
  std::size_t widest = 0;
  for (std::size_t line = 0; line < shown.formats.size(); ++line) {
    std::size_t width = shown.formats[line].indent;
    for (const std::size_t column : widths_of(shown, line, where)) width += column + column_gap;
    widest = std::max(widest, width - column_gap);
  }
  return widest;
}

table_text render_apart(const table &shown, const style &where) {
  table_text text;
  std::vector<fitted_format> fitted;
  for (std::size_t line = 0; line < shown.formats.size(); ++line) {
    fitted.push_back(fit(shown, line, where));
    text.titles += render_row(fitted[line], titles_of(shown.formats[line]), where);
  }
  for (const record &record : shown.records) {
    for (std::size_t line = 0; line < shown.formats.size(); ++line) {
      for (const row &cells : record.lines[line]) {
        text.rows += render_row(fitted[line], cells, where);
      }
    }
    for (const cell &one : record.texts) text.rows += render_text(one, where);
    if (!record.note.empty()) text.rows += render_text({record.note, colour::warning}, where);
  }
  return text;
}

std::string render(const table &shown, const style &where) {
  const table_text text = render_apart(shown, where);
  return text.titles + text.rows;
}

void erase_column(table &shown, std::size_t line, std::size_t which) {
  const auto at = static_cast<std::ptrdiff_t>(which);
  auto &columns = shown.formats[line].columns;
  columns.erase(columns.begin() + at);
  for (record &record : shown.records) {
    for (row &cells : record.lines[line]) cells.erase(cells.begin() + at);
  }
}

void mark_changes(table &shown, const table &before) {
  if (shown.formats.size() != before.formats.size()) return;
  std::map<std::string, const record *> known;
  for (const record &record : before.records) known[record.subject] = &record;
  for (record &record : shown.records) {
    const auto found = known.find(record.subject);
    if (found == known.end()) continue;
    for (std::size_t line = 0; line < shown.formats.size(); ++line) {
      mark_line(record.lines[line], found->second->lines[line], shown.formats[line]);
    }
  }
}

}  // namespace lumctl
