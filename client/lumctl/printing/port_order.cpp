#include "printing/port_order.h"

#include <cstring>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "names.h"
#include "printing/port_cells.h"
#include "printing/port_columns.h"

namespace lumctl {
namespace {

struct sort_key {
  bool known = false;
  std::optional<double> number;  // larger ones first
  std::string text;
};

sort_key key_of(const json &port, const port_column &by) {
  if (by.number_of) {
    const auto number = by.number_of(port);
    return {number.has_value(), number, {}};
  }
  const std::string text = by.cell_of(port).text;
  return {text != "-", {}, text};
}

// The state first; within it whoever has more alarms.
sort_key badness_of(const json &port) {
  constexpr double more_than_alarms = 1000;
  const unsigned alarms = alarms_raised(port).value_or(0);
  double badness = badness_of_port(text_or_dash(port.at("state")), alarms > 0);
  if (led_cell(port).paint == colour::bad) badness += 0.5;
  return {true, badness * more_than_alarms + alarms, {}};
}

bool stands_before(const sort_key &a, const sort_key &b, bool reversed) {
  if (a.known != b.known) return a.known;
  if (!a.known) return false;
  const sort_key &first = reversed ? b : a;
  const sort_key &second = reversed ? a : b;
  if (first.number) return *first.number > *second.number;
  // "0/1/0/10" stands behind "0/1/0/9".
  return ::strverscmp(first.text.c_str(), second.text.c_str()) < 0;
}

}  // namespace

std::vector<std::string> port_orders() {
  std::vector<std::string> orders = port_column_names();
  orders.insert(orders.begin(), worst_first);
  return orders;
}

void sort_ports(json &ports, const std::string &order, bool reversed) {
  const port_column *const by = find_port_column(order);
  if (by == nullptr && order != worst_first) {
    if (reversed) std::reverse(ports.begin(), ports.end());
    return;
  }
  std::vector<std::pair<sort_key, json>> keyed;
  for (json &port : ports) {
    sort_key key = by == nullptr ? badness_of(port) : key_of(port, *by);
    keyed.emplace_back(std::move(key), std::move(port));
  }
  std::stable_sort(keyed.begin(), keyed.end(), [reversed](const auto &a, const auto &b) {
    return stands_before(a.first, b.first, reversed);
  });
  ports = json::array();
  for (auto &[key, port] : keyed) ports.push_back(std::move(port));
}

}  // namespace lumctl
