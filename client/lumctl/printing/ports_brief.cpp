#include "printing/ports_brief.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/port_cells.h"
#include "terminal/glyphs.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

constexpr std::size_t shortest_name = 16;

std::size_t longest_name(std::size_t columns) { return std::max(shortest_name, columns / 3); }

// The ranks whose columns fit beside all those of lower ranks: up to which one.
unsigned last_rank_with_room(const table &shown, const std::vector<const port_column *> &columns,
                             const style &output) {
  std::map<unsigned, std::size_t> widths;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    table one = {{{{shown.formats.front().columns[i]}, 0}}, {}};
    for (const record &record : shown.records) {
      one.records.push_back({{{{record.lines.front().front()[i]}}}});
    }
    widths[columns[i]->rank.value()] += table_width(one, output) + column_gap;
  }
  std::size_t used = 0;
  unsigned last = 0;
  for (const auto &[rank, width] : widths) {
    used += width;
    if (used > output.columns + column_gap) break;
    last = rank;
  }
  return last;
}

// Returns whether any was too long.
bool shorten_names(table &shown, const std::vector<const port_column *> &columns,
                   std::size_t longest) {
  bool any = false;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (!columns[i]->is_name) continue;
    for (record &record : shown.records) {
      std::string &text = record.lines.front().front()[i].text;
      const std::string shorter = shortened(text, longest);
      any = any || shorter != text;
      text = shorter;
    }
  }
  return any;
}

}  // namespace

std::vector<const port_column *> brief_columns(const std::vector<std::string> &names) {
  std::vector<const port_column *> columns;
  for (const std::string &name : names) {
    if (const port_column *found = find_port_column(name)) columns.push_back(found);
  }
  if (!names.empty()) return columns;
  for (const port_column &one : port_columns()) {
    if (one.rank) columns.push_back(&one);
  }
  return columns;
}

table lay_out_brief(const json &ports, const std::vector<const port_column *> &columns) {
  table result;
  result.formats = {{}};
  for (const port_column *one : columns) result.formats.front().columns.push_back(one->shown);
  for (const json &port : ports) {
    row cells;
    for (const port_column *one : columns) cells.push_back(one->cell_of(port));
    result.records.push_back({{{cells}}, {}, {}, port.at("name").get<std::string>()});
  }
  return result;
}

std::string fit_brief(table &shown, std::vector<const port_column *> columns, const style &output) {
  if (output.columns == 0 || table_width(shown, output) <= output.columns) return {};
  std::string said;
  if (shorten_names(shown, columns, longest_name(output.columns))) {
    said = fmt::format("Names are shortened to {} columns; --columns port shows them whole.\n",
                       longest_name(output.columns));
  }
  const unsigned last = last_rank_with_room(shown, columns, output);
  std::string titles;
  std::size_t left_out = 0;
  for (std::size_t i = 0; i < columns.size();) {
    if (columns[i]->rank.value() <= last) {
      ++i;
      continue;
    }
    titles += (titles.empty() ? "" : ", ") + columns[i]->shown.title;
    ++left_out;
    erase_column(shown, 0, i);
    columns.erase(columns.begin() + static_cast<std::ptrdiff_t>(i));
  }
  if (left_out > 0) {
    said += fmt::format("{} not shown at {}: {}; --columns or --full shows them.\n",
                        lum_wording::counted(left_out, "column"), output.columns, titles);
  }
  return folded_notes(said, output);
}

std::string describe_reasons(const json &ports, const style &output) {
  std::vector<std::pair<std::string, std::string>> names_of;  // each reason's
  for (const json &port : ports) {
    const std::string reason = text_or_dash(port.at("reason"));
    if (reason == "-") continue;
    const std::string name = text_or_dash(port.at("name"));
    const auto known = std::find_if(names_of.begin(), names_of.end(),
                                    [&](const auto &one) { return one.first == reason; });
    if (known == names_of.end()) {
      names_of.emplace_back(reason, name);
    } else {
      known->second += ", " + name;
    }
  }
  std::string text;
  for (const auto &[reason, names] : names_of) {
    text += folded_notes(fmt::format("{} ({})\n", reason, names), output);
  }
  return text;
}

}  // namespace lumctl
