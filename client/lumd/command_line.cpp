#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <sstream>
#include <string_view>
#include <vector>

#include "base/output.h"
#include "lum.h"
#include "wording/nearest.h"

namespace lumd {
namespace {

// What was most likely meant by the first option that there is not; empty when there are all.
std::string complaint_of_option(const CLI::App &app, int argc, char **argv) {
  std::vector<std::string> known;
  for (const CLI::Option *option : app.get_options()) known.push_back(option->get_name());
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    const std::string name(word.substr(0, word.find('=')));
    if (!word.starts_with("--") || app.get_option_no_throw(name) != nullptr) continue;
    return fmt::format("there is no option {}{}", name, lum_wording::did_you_mean(name, known));
  }
  return {};
}

}  // namespace

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
  app.add_flag("--check", chosen.check,
               "Only say whether the description is right, and what a restart would change");
  app.set_version_flag("--version", fmt::format("lumd {}.{}.{}", LUM_VERSION_MAJOR,
                                                LUM_VERSION_MINOR, LUM_VERSION_PATCH));
  app.footer(
      "Exit status: 0 stopped as asked, 1 could not start or not stop, 2 wrong description "
      "or usage.");
  try {
    app.parse(argc, argv);
    return chosen;
  } catch (const CLI::Success &asked) {
    std::ostringstream answer;
    status = app.exit(asked, answer, answer);
    lum_client::print(answer.str());
  } catch (const CLI::ParseError &wrong) {
    const std::string unknown = complaint_of_option(app, argc, argv);
    lum_client::complain(
        fmt::format("lumd: {}; try --help\n", unknown.empty() ? wrong.what() : unknown));
    status = exit_wrong_description;
  }
  return std::nullopt;
}

}  // namespace lumd
