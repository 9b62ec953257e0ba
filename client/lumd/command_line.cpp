#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "lum.h"

namespace lumd {

std::optional<command_line> read_command_line(int argc, char **argv, int &status) {
  command_line chosen;
  CLI::App app(
      "The optics driver of one node: manages its OTS ports and serves the API that lumctl "
      "talks to. Runs in the foreground until SIGTERM or SIGINT.",
      "lumd");
  app.add_option("--config", chosen.config, "The node's description, a TOML file")->required();
  app.add_option("--socket", chosen.socket, "The API's socket, instead of the description's")
      ->check([](const std::string &path) { return std::string(path.empty() ? "is empty" : ""); });
  app.add_flag("--alarm-tests", chosen.alarm_tests,
               "Let lumctl inject alarms and readings for tests");
  app.add_flag("--check", chosen.check, "Only say whether the description is right");
  app.set_version_flag("--version", fmt::format("lumd {}.{}.{}", LUM_VERSION_MAJOR,
                                                LUM_VERSION_MINOR, LUM_VERSION_PATCH));
  app.footer(
      "Exit status: 0 stopped as asked, 1 could not start or not stop, 2 wrong description "
      "or usage.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &stop) {
    status = app.exit(stop) == 0 ? 0 : exit_wrong_description;
    return std::nullopt;
  }
  return chosen;
}

}  // namespace lumd
