#include "printing/port_columns.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printing/port_cells.h"
#include "words/readings.h"

namespace lumctl {
namespace {

constexpr unsigned sub_ports = 2;

// In what order columns are left out, from the last to the first.
enum rank : unsigned {
  rank_of_name,
  rank_of_state,
  rank_of_alarms,
  rank_of_temperature,
  rank_of_readings,  // and one more for each reading
  rank_of_led = rank_of_readings + 2,
  rank_of_age,
  rank_of_more_readings,
  rank_of_supply = rank_of_more_readings + lum_words::readings.size(),
  rank_of_part,
  rank_of_serial,
  rank_of_vendor,
  rank_of_firmware,
};

std::optional<double> number_at(const json &object, const char *name) {
  if (!object.is_object() || !object.contains(name) || !object.at(name).is_number()) return {};
  return object.at(name).get<double>();
}

const json &part_of(const json &port, const char *name) {
  static const json nothing;
  return port.contains(name) ? port.at(name) : nothing;
}

port_column vendor_column(const char *name, const char *title, const char *member,
                          std::optional<unsigned> rank) {
  return {.name = name,
          .shown = {title},
          .cell_of =
              [member](const json &port) {
                const json &vendor = part_of(port, "vendor");
                return cell{vendor.is_object() ? text_or_dash(vendor.at(member)) : "-"};
              },
          .rank = rank};
}

port_column word_column(const char *name, const char *title, const char *member, int digits,
                        unsigned rank) {
  return {.name = name,
          .shown = {title, true},
          .cell_of = [member, digits](const json &port) { return word_cell(port, member, digits); },
          .number_of = [member](const json &port) { return number_at(port, member); },
          .rank = rank};
}

const json *sub_port_of(const json &port, unsigned which) {
  for (const json &one : port.at("sub_ports")) {
    if (one.at("sub_port") == which) return &one;
  }
  return nullptr;
}

std::optional<double> reading_number(const json &port, unsigned which, std::size_t reading) {
  const json *sub_port = sub_port_of(port, which);
  if (sub_port == nullptr || reading >= sub_port->at("readings").size()) return {};
  const json &value = sub_port->at("readings").at(reading);
  return number_at(value, value.contains("dbm") ? "dbm" : "value");
}

// "P0 dBm" of sub-port 1 is headed "P0:1".
port_column reading_column(std::size_t reading, unsigned which) {
  const lum_words::reading &word = lum_words::readings.at(reading);
  const unsigned rank = reading < 2 ? rank_of_readings + reading : rank_of_more_readings + reading;
  return {.name = fmt::format("{}:{}", word.name, which),
          .shown = {fmt::format("{}:{}", word.title.substr(0, word.title.find(' ')), which), true},
          .cell_of =
              [reading, which](const json &port) {
                const json *sub_port = sub_port_of(port, which);
                return sub_port == nullptr ? cell{"-"} : reading_cells(port, *sub_port).at(reading);
              },
          .number_of = [reading,
                        which](const json &port) { return reading_number(port, which, reading); },
          .rank = rank};
}

port_column controller_column(unsigned which) {
  return {.name = fmt::format("controller:{}", which),
          .shown = {fmt::format("CONTROLLER:{}", which)},
          .cell_of =
              [which](const json &port) {
                const json *sub_port = sub_port_of(port, which);
                return cell{sub_port == nullptr ? "-" : text_or_dash(sub_port->at("ifname"))};
              },
          .is_name = true};
}

cell alarms_cell(const json &port) {
  const auto raised = alarms_raised(port);
  if (!raised) return {"-"};
  return {fmt::format("{}", *raised), *raised > 0 ? colour::bad : colour::none};
}

cell position_cell(const json &port) {
  const auto part = [&port](const char *name) { return port.at(name).get<unsigned>(); };
  return {fmt::format("{}/{}/{}/{}", part("rack"), part("slot"), part("instance"), part("port"))};
}

void add_identity(std::vector<port_column> &columns) {
  columns.push_back({.name = "port",
                     .shown = {"PORT"},
                     .cell_of =
                         [](const json &port) {
                           return cell{text_or_dash(port.at("name")), colour::strong};
                         },
                     .rank = rank_of_name,
                     .is_name = true});
  columns.push_back({.name = "position", .shown = {"POSITION"}, .cell_of = position_cell});
  columns.push_back(
      {.name = "state", .shown = {"STATE"}, .cell_of = state_cell, .rank = rank_of_state});
  columns.push_back({.name = "since",
                     .shown = {"SINCE S", true, true},
                     .cell_of = [](const json &port) -> cell {
                       return {number_or_dash(port.at("state_age_s"), 0)};
                     },
                     .number_of = [](const json &port) { return number_at(port, "state_age_s"); }});
  columns.push_back(
      {.name = "alarms",
       .shown = {"ALARMS", true},
       .cell_of = alarms_cell,
       .number_of = [](const json &port) -> std::optional<double> { return alarms_raised(port); },
       .rank = rank_of_alarms});
}

void add_condition(std::vector<port_column> &columns) {
  columns.push_back({.name = "led", .shown = {"LED"}, .cell_of = led_cell, .rank = rank_of_led});
  columns.push_back(word_column("temperature", "TEMP C", "temperature_c", 2, rank_of_temperature));
  columns.push_back(word_column("supply", "SUPPLY V", "supply_v", 3, rank_of_supply));
  columns.push_back(
      {.name = "age",
       .shown = {"AGE S", true, true},
       .cell_of = age_cell,
       .number_of =
           [](const json &port) { return number_at(part_of(port, "dom"), "last_poll_age_s"); },
       .rank = rank_of_age});
  for (std::size_t reading = 0; reading < lum_words::readings.size(); ++reading) {
    for (unsigned which = 0; which < sub_ports; ++which) {
      columns.push_back(reading_column(reading, which));
    }
  }
}

void add_rest(std::vector<port_column> &columns) {
  columns.push_back(vendor_column("vendor", "VENDOR", "name", rank_of_vendor));
  columns.push_back(vendor_column("part", "PART", "part", rank_of_part));
  columns.push_back(vendor_column("serial", "SERIAL", "serial", rank_of_serial));
  columns.push_back({.name = "firmware",
                     .shown = {"FW", true},
                     .cell_of = [](const json &port) { return cell{firmware_text(port)}; },
                     .rank = rank_of_firmware});
  columns.push_back({.name = "dom", .shown = {"DOM"}, .cell_of = dom_cell});
  columns.push_back({.name = "handle",
                     .shown = {"HANDLE", true},
                     .cell_of = [](const json &port) -> cell {
                       return {fmt::format("{}", port.at("port_handle").get<std::uint32_t>())};
                     },
                     .number_of = [](const json &port) { return number_at(port, "port_handle"); }});
  for (unsigned which = 0; which < sub_ports; ++which) columns.push_back(controller_column(which));
  columns.push_back({.name = "reason", .shown = {"REASON"}, .cell_of = [](const json &port) {
                       return cell{text_or_dash(port.at("reason")), colour::warning};
                     }});
}

}  // namespace

const std::vector<port_column> &port_columns() {
  static const std::vector<port_column> columns = [] {
    std::vector<port_column> made;
    add_identity(made);
    add_condition(made);
    add_rest(made);
    return made;
  }();
  return columns;
}

std::vector<std::string> port_column_names() {
  std::vector<std::string> names;
  for (const port_column &one : port_columns()) names.push_back(one.name);
  return names;
}

const port_column *find_port_column(std::string_view name) {
  const auto found = std::find_if(port_columns().begin(), port_columns().end(),
                                  [name](const port_column &one) { return one.name == name; });
  return found == port_columns().end() ? nullptr : &*found;
}

std::optional<unsigned> alarms_raised(const json &port) {
  if (port.at("sub_ports").empty()) return {};
  std::size_t raised = 0;
  for (const json &sub_port : port.at("sub_ports")) {
    if (!sub_port.contains("pm") || !sub_port.at("pm").contains("raised")) return {};
    raised += sub_port.at("pm").at("raised").size();
  }
  return static_cast<unsigned>(raised);
}

}  // namespace lumctl
