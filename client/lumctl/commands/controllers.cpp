#include <fmt/format.h>

#include "commands/exchange.h"

namespace lumctl {

void add_replay(CLI::App &app, command_line &line) {
  CLI::App *command = app.add_subcommand(
      "replay", "Ask the interface manager for the controllers of every port again");
  const auto wanted = add_wait(*command);
  finish(*command, line, [&line, wanted] {
    return change(line, "/v1/controllers/replay", json::object(), *wanted, [](const json &reply) {
      fmt::print("{} of {} controllers confirmed\n", reply.at("confirmed").get<unsigned>(),
                 reply.at("controllers").get<unsigned>());
    });
  });
}

void add_resync(CLI::App &app, command_line &line) {
  CLI::App *command = app.add_subcommand("resync", "Ask the entity agent for a replay");
  finish(*command, line, [&line] {
    return change(line, "/v1/controllers/resync", json::object(), [](const json &) {
      fmt::print("the entity agent has been asked for a replay\n");
    });
  });
}

}  // namespace lumctl
