#include "node/find_port.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "base/sub_port_name.h"
#include "lum.h"
#include "wording/nearest.h"

namespace lumd {
namespace {

using lum_linux::node_description;
using lum_linux::port_description;

constexpr std::size_t most_names_told = 8;
constexpr std::size_t longest_shown = 64;

std::string position_of(const port_description &port) {
  const uint32_t rsip = port.rsip;
  return fmt::format("{}/{}/{}/{}", rsip >> 24, rsip >> 16 & 0xFF, rsip >> 8 & 0xFF, rsip & 0xFF);
}

// The names of all ports, the one most like `name` or whose position is most like it first.
std::vector<std::string> names_by_likeness(const node_description &node, const std::string &name) {
  std::vector<std::pair<std::size_t, std::string>> names;
  const bool is_comparable = name.size() <= lum_wording::longest_compared;
  for (const auto *port : node.ports()) {
    const std::size_t differs = is_comparable
                                    ? std::min(lum_wording::distance(name, port->name),
                                               lum_wording::distance(name, position_of(*port)))
                                    : 0;
    names.emplace_back(differs, port->name);
  }
  std::stable_sort(names.begin(), names.end(),
                   [](const auto &one, const auto &other) { return one.first < other.first; });
  std::vector<std::string> sorted;
  sorted.reserve(names.size());
  for (auto &[differs, one] : names) sorted.push_back(std::move(one));
  return sorted;
}

std::string unknown_port(const node_description &node, const std::string &name) {
  std::string text = fmt::format("the node has no port \"{}{}\"", name.substr(0, longest_shown),
                                 name.size() > longest_shown ? "..." : "");
  std::vector<std::string> names = names_by_likeness(node, name);
  if (names.empty()) return text + "; it has none at all";
  text += lum_wording::did_you_mean(name, names);
  if (names.size() == 1) return text + fmt::format("; its only port is {}", names.front());
  if (names.size() <= most_names_told) {
    return text + fmt::format("; its ports are {}", fmt::join(names, ", "));
  }
  const std::size_t all = names.size();
  names.resize(most_names_told);
  return text + fmt::format("; the nearest of its {} ports are {}", all, fmt::join(names, ", "));
}

}  // namespace

const port_description *find_port(const node_description &node, const std::string &name) {
  const auto ports = node.ports();
  for (const auto *port : ports) {
    if (port->name == name) return port;
  }
  for (const auto *port : ports) {
    if (position_of(*port) == name) return port;
  }
  return nullptr;
}

port_place find_place(const node_description &node, const std::string &name) {
  if (const auto *port = find_port(node, name)) return {port};
  const auto part = lum_client::read_sub_port_name(name);
  if (!part || part->sub_port >= LUM_SUB_PORTS) return {};
  return {find_port(node, part->port), part->sub_port};
}

refusal reason_against_port(const node_description &node, const std::string &name) {
  const auto part = lum_client::read_sub_port_name(name);
  if (!part) return {refusal_kind::unknown, unknown_port(node, name)};
  const auto *port = find_port(node, part->port);
  if (port == nullptr) return {refusal_kind::unknown, unknown_port(node, part->port)};
  if (part->sub_port >= LUM_SUB_PORTS) {
    return {refusal_kind::wrong,
            fmt::format("port {} has sub-ports 0 and 1, not {}", port->name, part->sub_port)};
  }
  return {refusal_kind::wrong,
          fmt::format("\"{}\" is a sub-port, and this is for whole ports: give \"{}\"", name,
                      part->port)};
}

}  // namespace lumd
