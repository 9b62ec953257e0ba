#include "printing/port_cells.h"

#include <fmt/format.h>

namespace lumctl {
namespace {

constexpr std::size_t readings = 5;

// A member that may be missing.
json member(const json &object, const char *name) {
  return object.is_object() && object.contains(name) ? object.at(name) : json();
}

}  // namespace

std::string text_or_dash(const json &value) {
  if (!value.is_string() || value.get<std::string>().empty()) return "-";
  return printable(value.get<std::string>());
}

std::string number_or_dash(const json &value, int digits) {
  return value.is_number() ? fmt::format("{:.{}f}", value.get<double>(), digits) : "-";
}

cell state_cell(const json &port) {
  const std::string state = text_or_dash(port.at("state"));
  const colour paint = state == "up"        ? colour::good
                       : state == "failing" ? colour::bad
                                            : colour::warning;
  return {state, paint};
}

cell led_cell(const json &port) {
  const std::string name = text_or_dash(member(member(port, "led"), "name"));
  const colour paint = name == "normal"  ? colour::good
                       : name == "fault" ? colour::bad
                                         : colour::none;
  return {name, paint};
}

cell dom_cell(const json &port) {
  const json dom = member(port, "dom");
  if (!dom.is_object()) return {"-"};
  if (!dom.at("enabled").get<bool>()) return {"off", colour::faint};
  if (dom.at("transceiver_disabled").get<bool>()) return {"no module", colour::warning};
  return {"on"};
}

std::string firmware_text(const json &port) {
  return text_or_dash(member(member(port, "firmware"), "text"));
}

std::string handle_text(const json &sub_port) {
  if (!sub_port.at("created").get<bool>()) return "-";
  return fmt::format("0x{:08x}", sub_port.at("ifhandle").get<std::uint32_t>());
}

std::vector<cell> reading_cells(const json &sub_port) {
  std::vector<cell> cells;
  const json &values = sub_port.at("readings");
  for (std::size_t i = 0; i < readings; ++i) {
    if (i >= values.size()) {
      cells.push_back({"-"});
    } else if (values.at(i).contains("dbm")) {
      cells.push_back({number_or_dash(values.at(i).at("dbm"), 2)});
    } else {
      cells.push_back({number_or_dash(values.at(i).at("value"), 1)});
    }
  }
  return cells;
}

std::vector<column> reading_columns() {
  return {{"P0 dBm", true}, {"P1 dBm", true}, {"P2 dBm", true}, {"R3", true}, {"R4", true}};
}

}  // namespace lumctl
