#include "printing/table.h"

#include <algorithm>

#include "terminal/printable.h"

namespace lumctl {
namespace {

constexpr std::size_t gap = 2;
constexpr std::size_t note_indent = 4;

std::vector<std::size_t> widths_of(const line_format &format, std::size_t line,
                                   const std::vector<record> &records) {
  std::vector<std::size_t> widths;
  for (const column &column : format.columns) widths.push_back(display_width(column.title));
  for (const record &record : records) {
    for (const row &cells : record.lines[line]) {
      for (std::size_t i = 0; i < cells.size(); ++i) {
        widths[i] = std::max(widths[i], display_width(cells[i].text));
      }
    }
  }
  return widths;
}

std::string render_row(const line_format &format, const std::vector<std::size_t> &widths,
                       const row &cells, const style &where) {
  std::string text(format.indent, ' ');
  std::size_t owed = 0;  // blanks that go out only when something follows them
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::size_t fill = widths[i] - display_width(cells[i].text);
    if (i > 0) owed += gap;
    if (format.columns[i].right) owed += fill;
    if (!cells[i].text.empty()) {
      text.append(owed, ' ');
      text += painted(where, cells[i].text, cells[i].paint);
      owed = 0;
    }
    if (!format.columns[i].right) owed += fill;
  }
  return text + "\n";
}

row titles(const line_format &format) {
  row result;
  for (const column &column : format.columns) result.push_back({column.title, colour::strong});
  return result;
}

}  // namespace

std::size_t table_width(const std::vector<line_format> &formats,
                        const std::vector<record> &records) {
  std::size_t widest = 0;
  for (std::size_t line = 0; line < formats.size(); ++line) {
    std::size_t width = formats[line].indent;
    for (const std::size_t column : widths_of(formats[line], line, records)) width += column + gap;
    widest = std::max(widest, width - gap);
  }
  return widest;
}

std::string render(const std::vector<line_format> &formats, const std::vector<record> &records,
                   const style &where) {
  std::string text;
  std::vector<std::vector<std::size_t>> widths;
  for (std::size_t line = 0; line < formats.size(); ++line) {
    widths.push_back(widths_of(formats[line], line, records));
    text += render_row(formats[line], widths[line], titles(formats[line]), where);
  }
  for (const record &record : records) {
    for (std::size_t line = 0; line < formats.size(); ++line) {
      for (const row &cells : record.lines[line]) {
        text += render_row(formats[line], widths[line], cells, where);
      }
    }
    if (!record.note.empty()) {
      text += std::string(note_indent, ' ') + painted(where, record.note, colour::warning) + "\n";
    }
  }
  return text;
}

}  // namespace lumctl
