#include <fmt/format.h>

#include "commands.h"
#include "port_cells.h"

namespace lumctl {
namespace {

std::string states_of(const json &counts) {
  std::string text;
  for (const auto &[state, count] : counts.items()) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", count.get<unsigned>(), state);
  }
  return text.empty() ? "none" : text;
}

void print_node(const json &node) {
  const auto line = [](const char *name, const std::string &value) {
    fmt::print("{:<14} {}\n", std::string(name) + ":", value);
  };
  line("Node",
       fmt::format("{} (rack {})", text_or_dash(node.at("name")), node.at("rack").get<unsigned>()));
  line("Driver",
       fmt::format("lumd {}, {} start at {}, up for {} s", text_or_dash(node.at("version")),
                   node.at("restart").get<bool>() ? "warm" : "cold",
                   text_or_dash(node.at("started")), node.at("uptime_s").get<std::int64_t>()));
  line("Description", text_or_dash(node.at("description")));
  line("Ports",
       fmt::format("{}: {}", node.at("ports").get<unsigned>(), states_of(node.at("port_states"))));
  line("Controllers", fmt::format("{}{}", node.at("controllers").get<unsigned>(),
                                  node.at("resync").get<bool>() ? ", a resync is owed" : ""));
  const json &store = node.at("checkpoints");
  line(
      "Checkpoints",
      fmt::format("{}: {} entries, {} writes, {} failures", text_or_dash(store.at("file")),
                  store.at("entries").get<std::uint64_t>(), store.at("writes").get<std::uint64_t>(),
                  store.at("failures").get<std::uint64_t>()));
  for (const json &channel : node.at("traces")) {
    line("Trace", fmt::format("{}: {} lines", text_or_dash(channel.at("file")),
                              channel.at("lines").get<std::uint64_t>()));
  }
}

}  // namespace

void add_show_node(CLI::App &show_app, command_line &line) {
  CLI::App *command = show_app.add_subcommand("node", "The node and its driver");
  command->add_flag("--json", line.as_json, "Print what the driver answered");
  command->callback(
      [&line] { line.chosen = [&line] { return show(line, "/v1/node", print_node); }; });
}

}  // namespace lumctl
