#include "printing/ports_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printing/polling_text.h"
#include "printing/port_cells.h"
#include "printing/store_text.h"

namespace lumctl {
namespace {

// The columns in three groups; how they share the lines depends on the terminal's width.
std::vector<column> identity_columns() {
  return {{"PORT"}, {"STATE"}, {"VENDOR"}, {"PART"}, {"SERIAL"}, {"FW", true}};
}
std::vector<column> condition_columns() {
  return {{"HANDLE", true}, {"TEMP C", true}, {"SUPPLY V", true},
          {"AGE S", true},  {"LED"},          {"DOM"}};
}
std::vector<column> sub_port_columns() {
  std::vector<column> columns = {{"CONTROLLER"}, {"IFHANDLE"}};
  for (const column &reading : reading_columns()) columns.push_back(reading);
  return columns;
}

row identity_cells(const json &port) {
  const json vendor = port.contains("vendor") ? port.at("vendor") : json::object();
  const auto field = [&vendor](const char *name) {
    return cell{vendor.contains(name) ? text_or_dash(vendor.at(name)) : "-"};
  };
  return {{text_or_dash(port.at("name")), colour::strong},
          state_cell(port),
          field("name"),
          field("part"),
          field("serial"),
          {firmware_text(port)}};
}

row condition_cells(const json &port) {
  return {{fmt::format("{}", port.at("port_handle").get<std::uint32_t>())},
          word_cell(port, "temperature_c", 2),
          word_cell(port, "supply_v", 3),
          age_cell(port),
          led_cell(port),
          dom_cell(port)};
}

row sub_port_cells(const json &port, const json &sub_port) {
  row cells = {{text_or_dash(sub_port.at("ifname"))}, {handle_text(sub_port)}};
  for (const cell &reading : reading_cells(port, sub_port)) cells.push_back(reading);
  return cells;
}

row joined(row first, const row &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}
std::vector<column> joined(std::vector<column> first, const std::vector<column> &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

struct layout {
  std::vector<line_format> formats;
  std::vector<record> records;
};

std::vector<row> sub_port_rows(const json &port) {
  std::vector<row> rows;
  for (const json &sub_port : port.at("sub_ports")) rows.push_back(sub_port_cells(port, sub_port));
  return rows;
}

// Everything about a sub-port on one line.
layout lay_out_wide(const json &ports) {
  layout result;
  const auto own = joined(identity_columns(), condition_columns());
  result.formats = {{joined(own, sub_port_columns()), 0}};
  for (const json &port : ports) {
    std::vector<row> rows = {joined(identity_cells(port), condition_cells(port))};
    const auto sub_ports = sub_port_rows(port);
    for (std::size_t i = 0; i < sub_ports.size(); ++i) {
      if (i > 0) rows.push_back(row(own.size()));
      rows.back() = joined(rows.back(), sub_ports.at(i));
    }
    result.records.push_back({{rows}, {}});
  }
  return result;
}

// A line for the port, one for each sub-port.
layout lay_out_folded(const json &ports) {
  layout result;
  result.formats = {{joined(identity_columns(), condition_columns()), 0}, {sub_port_columns(), 4}};
  for (const json &port : ports) {
    result.records.push_back(
        {{{joined(identity_cells(port), condition_cells(port))}, sub_port_rows(port)},
         text_or_dash(port.at("reason"))});
  }
  return result;
}

// Two lines for the port, one for each sub-port.
layout lay_out_narrow(const json &ports) {
  layout result;
  result.formats = {{identity_columns(), 0}, {condition_columns(), 4}, {sub_port_columns(), 4}};
  for (const json &port : ports) {
    result.records.push_back(
        {{{identity_cells(port)}, {condition_cells(port)}, sub_port_rows(port)},
         text_or_dash(port.at("reason"))});
  }
  return result;
}

bool has_mark(const json &port) {
  if (port.contains("implausible") && !port.at("implausible").empty()) return true;
  for (const json &sub_port : port.at("sub_ports")) {
    for (const json &reading : sub_port.at("readings")) {
      if (reading.contains("plausible") && !reading.at("plausible").get<bool>()) return true;
    }
  }
  return false;
}

std::string describe_marks(const json &ports) {
  return std::any_of(ports.begin(), ports.end(), has_mark) ? describe_mark() : "";
}

}  // namespace

std::string describe_ports(const json &answer, bool wide, const style &output) {
  const json &ports = answer.at("ports");
  layout chosen = wide ? lay_out_wide(ports) : lay_out_folded(ports);
  if (!wide && table_width(chosen.formats, chosen.records) > output.columns) {
    chosen = lay_out_narrow(ports);
  }
  for (record &record : chosen.records) {
    if (record.note == "-") record.note.clear();
  }
  return render(chosen.formats, chosen.records, output) + describe_marks(ports) +
         describe_halt(answer.at("halt")) + describe_missing_store(answer.at("store"));
}

}  // namespace lumctl
