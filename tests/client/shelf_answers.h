// Answers of a driver with as many ports as a test needs, and how what is drawn of them is looked
// at.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "api/json.h"
#include "terminal/glyphs.h"

namespace lumctl {

inline std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

MATCHER_P(FitsInto, columns, "") { return display_width(arg) <= static_cast<std::size_t>(columns); }

inline json reading(double dbm) {
  return {{"name", "power"}, {"raw", 1}, {"dbm", dbm}, {"plausible", true}};
}

inline json sub_port(unsigned number, double power, const json &raised) {
  json one = {{"sub_port", number},
              {"ifname", "Ots" + std::to_string(number)},
              {"ifhandle", 1},
              {"created", true},
              {"readings", {reading(power), reading(1), reading(2)}},
              {"pm", json::object()}};
  one["readings"].push_back({{"name", "r"}, {"raw", 1}, {"value", 1.0}});
  one["readings"].push_back({{"name", "r"}, {"raw", 1}, {"value", 1.0}});
  if (raised.is_array()) one["pm"]["raised"] = raised;
  return one;
}

inline json port(const std::string &name, unsigned number, const std::string &state, double power,
                 const json &raised = json::array()) {
  return {{"name", name},
          {"rack", 0},
          {"slot", 1 + number / 100},
          {"instance", 0},
          {"port", number},
          {"port_handle", number},
          {"state", state},
          {"reason", state == "up" ? "" : "it is " + state},
          {"state_age_s", 1},
          {"led", {{"name", "normal"}}},
          {"vendor", {{"name", "II-VI"}, {"part", "P"}, {"serial", "S" + name}}},
          {"firmware", {{"text", "0.06"}}},
          {"temperature_c", 40.0 + number},
          {"supply_v", 3.3},
          {"implausible", json::array()},
          {"dom", {{"enabled", true}, {"transceiver_disabled", false}, {"last_poll_age_s", 1}}},
          {"sub_ports", {sub_port(0, power, raised), sub_port(1, power, raised)}}};
}

inline json answer_of(const std::vector<json> &ports) {
  return {{"ports", ports}, {"halt", nullptr}, {"store", {{"usable", true}}}};
}

inline json shelf_of(unsigned count, const std::string &prefix = "0/1/0/") {
  std::vector<json> ports;
  for (unsigned i = 1; i <= count; ++i)
    ports.push_back(port(prefix + std::to_string(i), i, "up", -3));
  return answer_of(ports);
}

inline std::vector<std::string> names_in(const json &ports) {
  std::vector<std::string> names;
  for (const json &one : ports) names.push_back(one.at("name").get<std::string>());
  return names;
}

}  // namespace lumctl
