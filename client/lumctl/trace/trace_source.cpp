#include "trace/trace_source.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "command_line/status.h"
#include "lum_linux/node_description.h"
#include "terminal/printable.h"
#include "wording/nearest.h"

namespace lumctl {
namespace {

namespace fs = std::filesystem;
using lum_linux::node_description;

trace_source refused(int status, std::string why) {
  trace_source none;
  none.status = status;
  none.wrong = std::move(why);
  return none;
}

// "0/1/0/3"
std::optional<std::uint32_t> read_position(const std::string &text) {
  std::array<std::uint32_t, 4> parts{};
  const char *at = text.data();
  const char *const end = text.data() + text.size();
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0 && (at == end || *at++ != '/')) return std::nullopt;
    const auto [behind, error] = std::from_chars(at, end, parts[i]);
    if (error != std::errc() || parts[i] > 0xFF) return std::nullopt;
    at = behind;
  }
  if (at != end) return std::nullopt;
  return lum_linux::make_rsip(parts[0], parts[1], parts[2], parts[3]);
}

std::optional<std::uint32_t> find_port(const node_description &node, const std::string &name) {
  for (const lum_linux::port_description *port : node.ports()) {
    if (port->name == name) return port->rsip;
  }
  const auto position = read_position(name);
  return position && node.find(*position) != nullptr ? position : std::nullopt;
}

std::string no_such_port(const node_description &node, const std::string &name) {
  std::vector<std::string> names;
  for (const lum_linux::port_description *port : node.ports()) names.push_back(port->name);
  return fmt::format("{} has no port \"{}\"{}", node.source.string(), printable(name),
                     lum_wording::did_you_mean(name, names));
}

trace_source by_description(const fs::path &file, const trace_wish &wanted) {
  const lum_linux::description_result read = lum_linux::read_node_description(file);
  if (!read.node) return refused(exit_refused, to_string(read.problems.front()));
  trace_source found;
  found.folder = wanted.directory.empty() ? read.node->trace_directory : fs::path(wanted.directory);
  if (wanted.port.empty()) return found;
  found.port = find_port(*read.node, wanted.port);
  return found.port ? found : refused(exit_refused, no_such_port(*read.node, wanted.port));
}

// A folder of traces may be of any node, so the driver here is not asked about it.
trace_source by_folder(const trace_wish &wanted) {
  trace_source found;
  found.folder = wanted.directory;
  if (wanted.port.empty()) return found;
  found.port = read_position(wanted.port);
  if (found.port) return found;
  return refused(exit_usage,
                 fmt::format("\"{}\" is no rack/slot/instance/port; --directory takes a "
                             "port's name with --config, the description that has it",
                             printable(wanted.port)));
}

fs::path folder_of(const json &node) {
  for (const json &channel : node.at("traces")) {
    return fs::path(channel.at("file").get<std::string>()).parent_path();
  }
  return {};
}

trace_source by_driver(const session &now, const json &node, const trace_wish &wanted) {
  trace_source found;
  found.folder = folder_of(node);
  if (found.folder.empty()) return refused(exit_refused, "the driver has no trace channel open");
  if (wanted.port.empty()) return found;
  const api_result port = get(now.driver, "/v1/ports/" + encoded(wanted.port), now.patience);
  if (port.what != outcome::done) {
    return refused(port.what == outcome::refused ? exit_refused : exit_unreachable, port.error);
  }
  found.port = port.body->at("rsip").get<std::uint32_t>();
  for (const json &sub_port : port.body->at("sub_ports")) {
    if (sub_port.at("created") == true) {
      found.ifhandles.push_back(sub_port.at("ifhandle").get<std::uint32_t>());
    }
  }
  return found;
}

}  // namespace

trace_source find_traces(const session &now, const trace_wish &wanted) {
  if (!wanted.config.empty()) return by_description(wanted.config, wanted);
  if (!wanted.directory.empty()) return by_folder(wanted);
  const api_result node = get(now.driver, "/v1/node", now.patience);
  if (node.what == outcome::done) return by_driver(now, *node.body, wanted);
  trace_source found = by_description(usual_description, wanted);
  if (found.wrong.empty()) return found;
  return refused(exit_unreachable,
                 fmt::format("{}. Without a driver, {}. Another description: --config, a folder of "
                             "traces: --directory",
                             node.error, found.wrong));
}

}  // namespace lumctl
