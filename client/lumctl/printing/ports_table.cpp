#include "printing/ports_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"
#include "printing/ports_brief.h"
#include "printing/store_text.h"

namespace lumctl {
namespace {

// The columns in three groups; how they share the lines depends on the terminal's width.
std::vector<column> identity_columns() {
  return {{"PORT"}, {"STATE"}, {"VENDOR"}, {"PART"}, {"SERIAL"}, {"FW", true}};
}
std::vector<column> condition_columns() {
  return {{"HANDLE", true},      {"TEMP C", true}, {"SUPPLY V", true},
          {"AGE S", true, true}, {"LED"},          {"DOM"}};
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

std::vector<row> sub_port_rows(const json &port) {
  std::vector<row> rows;
  for (const json &sub_port : port.at("sub_ports")) rows.push_back(sub_port_cells(port, sub_port));
  return rows;
}

std::string subject_of(const json &port) { return port.at("name").get<std::string>(); }

std::string note_of(const json &port) {
  const std::string reason = text_or_dash(port.at("reason"));
  return reason == "-" ? "" : reason;
}

// Everything about a sub-port on one line.
table lay_out_wide(const json &ports) {
  table result;
  const auto own = joined(identity_columns(), condition_columns());
  result.formats = {{joined(joined(own, sub_port_columns()), {{"REASON"}}), 0}};
  const std::size_t last = result.formats.front().columns.size() - 1;
  for (const json &port : ports) {
    std::vector<row> rows = {joined(identity_cells(port), condition_cells(port))};
    const auto sub_ports = sub_port_rows(port);
    for (std::size_t i = 0; i < sub_ports.size(); ++i) {
      if (i > 0) rows.push_back(row(own.size()));
      rows.back() = joined(rows.back(), sub_ports.at(i));
    }
    rows.front().resize(last);
    rows.front().push_back({note_of(port), colour::warning});
    result.records.push_back({{rows}, {}, {}, subject_of(port)});
  }
  return result;
}

// A line for the port, one for each sub-port.
table lay_out_folded(const json &ports) {
  table result;
  result.formats = {{joined(identity_columns(), condition_columns()), 0}, {sub_port_columns(), 4}};
  for (const json &port : ports) {
    result.records.push_back(
        {{{joined(identity_cells(port), condition_cells(port))}, sub_port_rows(port)},
         note_of(port),
         {},
         subject_of(port)});
  }
  return result;
}

// Two lines for the port, one for each sub-port.
constexpr std::size_t sub_port_line = 2;
constexpr std::size_t handle_column = 1;
table lay_out_narrow(const json &ports) {
  table result;
  result.formats = {{identity_columns(), 0}, {condition_columns(), 4}, {sub_port_columns(), 4}};
  for (const json &port : ports) {
    result.records.push_back(
        {{{identity_cells(port)}, {condition_cells(port)}, sub_port_rows(port)},
         note_of(port),
         {},
         subject_of(port)});
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

// Up to so many ports a screen has room for all about each.
constexpr std::size_t few_ports = 12;

ports_form form_for(const json &ports, const ports_wish &wish, const style &output) {
  if (!wish.columns.empty()) return ports_form::brief;
  if (wish.form != ports_form::fitting) return wish.form;
  if (output.columns == 0) return ports_form::wide;
  return ports.size() > few_ports ? ports_form::brief : ports_form::full;
}

using layout = table (*)(const json &ports);

table lay_out(layout form, const json &ports, const json *before) {
  table result = form(ports);
  if (before != nullptr) mark_changes(result, form(before->at("ports")));
  return result;
}

ports_picture draw_brief(const json &ports, const json *before, const ports_wish &wish,
                         const style &output) {
  const auto columns = brief_columns(wish.columns);
  ports_picture picture = {lay_out_brief(ports, columns), {}};
  if (before != nullptr) {
    mark_changes(picture.shown, lay_out_brief(before->at("ports"), columns));
  }
  if (!wish.columns.empty()) return picture;  // what was asked for stands whole
  picture.notes = fit_brief(picture.shown, columns, output) + describe_reasons(ports, output);
  return picture;
}

// Handles are for programs: a narrow screen goes without them before its lines fold.
ports_picture draw_full(const json &ports, const json *before, const style &output) {
  ports_picture picture = {lay_out(lay_out_folded, ports, before), {}};
  if (output.columns == 0 || table_width(picture.shown, output) <= output.columns) return picture;
  picture.shown = lay_out(lay_out_narrow, ports, before);
  if (table_width(picture.shown, output) <= output.columns) return picture;
  erase_column(picture.shown, sub_port_line, handle_column);
  picture.notes =
      fmt::format("1 column not shown at {}: IFHANDLE; --wide shows it.\n", output.columns);
  return picture;
}

std::string describe_all_ports(const json &answer, const style &output) {
  const std::string said = describe_marks(answer.at("ports")) + describe_halt(answer.at("halt")) +
                           describe_missing_store(answer.at("store"));
  return folded_notes(said, output);
}

}  // namespace

ports_picture picture_of_ports(const json &answer, const json *before, const ports_wish &wish,
                               const style &output) {
  const json &ports = answer.at("ports");
  const ports_form form = form_for(ports, wish, output);
  ports_picture picture = form == ports_form::brief ? draw_brief(ports, before, wish, output)
                          : form == ports_form::wide
                              ? ports_picture{lay_out(lay_out_wide, ports, before), {}}
                              : draw_full(ports, before, output);
  picture.notes += describe_all_ports(answer, output);
  return picture;
}

std::string describe_ports(const json &answer, const ports_wish &wish, const style &output) {
  const ports_picture picture = picture_of_ports(answer, nullptr, wish, output);
  style where = output;
  if (wish.form == ports_form::wide) where.columns = 0;
  return render(picture.shown, where) + picture.notes;
}

}  // namespace lumctl
