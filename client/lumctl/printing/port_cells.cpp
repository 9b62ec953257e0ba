#include "printing/port_cells.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "names.h"
#include "terminal/printable.h"
#include "words/plausible.h"
#include "words/port_states.h"
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
  const json led = member(port, "led");
  if (led.is_object() && led.contains("problem")) return {"broken", colour::bad};
  const std::string name = text_or_dash(member(led, "name"));
  return {name, colour_of_led(name)};
}

cell age_cell(const json &port) {
  const json age = member(member(port, "dom"), "last_poll_age_s");
  return {number_or_dash(age, 0), has_old_readings(port) ? colour::warning : colour::none};
}

bool has_old_readings(const json &port) {
  const json &state = port.at("state");
  return state == name_of(lum_words::port_states, lum_words::port_state::stale) ||
         state == name_of(lum_words::port_states, lum_words::port_state::going) ||
         state == name_of(lum_words::port_states, lum_words::port_state::failing) ||
         state == name_of(lum_words::port_states, lum_words::port_state::upgrading);
}

bool is_implausible(const json &port, const char *name) {
  const json marked = member(port, "implausible");
  return marked.is_array() && std::find(marked.begin(), marked.end(), name) != marked.end();
}

std::string describe_mark() {
  using namespace lum_words;
  return fmt::format(
      "{} no module can have measured this: powers are {} to {} dBm, temperatures "
      "{} to {} C, supplies {} to {} V\n",
      implausible_mark, plausible_power_dbm.lowest, plausible_power_dbm.highest,
      plausible_temperature_c.lowest, plausible_temperature_c.highest, plausible_supply_v.lowest,
      plausible_supply_v.highest);
}

cell word_cell(const json &port, const char *name, int digits) {
  const std::string text = number_or_dash(member(port, name), digits);
  if (is_implausible(port, name)) return {text + implausible_mark, colour::bad};
  return {text, has_old_readings(port) ? colour::faint : colour::none};
}

cell dom_cell(const json &port) {
  const json dom = member(port, "dom");
  if (!dom.is_object()) return {"-"};
  if (!dom.at("enabled").get<bool>()) return {"off", colour::faint};
  if (dom.at("transceiver_disabled").is_null()) return {"-"};
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

std::vector<cell> reading_cells(const json &port, const json &sub_port) {
  const colour usual = has_old_readings(port) ? colour::faint : colour::none;
  std::vector<cell> cells;
  const json &values = sub_port.at("readings");
  for (std::size_t i = 0; i < lum_words::readings.size(); ++i) {
    if (i >= values.size()) {
      cells.push_back({"-"});
    } else if (values.at(i).contains("dbm")) {
      const bool plausible = values.at(i).at("plausible").get<bool>();
      cells.push_back(
          {number_or_dash(values.at(i).at("dbm"), 2) + (plausible ? "" : implausible_mark),
           plausible ? usual : colour::bad});
    } else {
      cells.push_back({number_or_dash(values.at(i).at("value"), 1), usual});
    }
  }
  return cells;
}

std::vector<column> reading_columns() {
  std::vector<column> columns;
  columns.reserve(lum_words::readings.size());
  for (const lum_words::reading &reading : lum_words::readings) {
    columns.push_back({std::string(reading.title), true});
  }
  return columns;
}

}  // namespace lumctl
