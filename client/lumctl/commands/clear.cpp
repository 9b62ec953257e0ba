#include <fmt/format.h>

#include "commands/exchange.h"

namespace lumctl {

void add_clear(CLI::App &app, command_line &line) {
  CLI::App *clear = app.add_subcommand("clear", "Set counters back to zero");
  clear->require_subcommand(0, 1);
  const auto name = std::make_shared<std::string>();
  CLI::App *command = clear->add_subcommand("stats", "The alarm counters of a port or of all");
  command->add_option("name", *name, "Only this port");
  finish(*command, line, [&line, name] {
    json body = json::object();
    if (!name->empty()) body["port"] = *name;
    return change(line, "/v1/statistics/clear", body, [](const json &reply) {
      fmt::print("the counters of {} controllers are back at zero\n",
                 reply.at("cleared").get<unsigned>());
    });
  });
}

}  // namespace lumctl
