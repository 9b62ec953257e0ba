#include "printing/port_cells.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "names.h"
#include "terminal/printable.h"
#include "words/readings.h"

namespace lumctl {
namespace {

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
  return {state, colour_of_port(state)};
}

cell led_cell(const json &port) {
  const std::string name = text_or_dash(member(member(port, "led"), "name"));
  return {name, colour_of_led(name)};
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
  for (std::size_t i = 0; i < lum_words::readings.size(); ++i) {
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
  std::vector<column> columns;
  for (const lum_words::reading &reading : lum_words::readings) {
    columns.push_back({std::string(reading.title), true});
  }
  return columns;
}

}  // namespace lumctl
