#include <fmt/format.h>

#include <cstdio>

#include "commands/commands.h"
#include "terminal/progress.h"

namespace lumctl {

void add_show(CLI::App &app, command_line &line) {
  CLI::App *show = app.add_subcommand("show", "Show the node, its ports and what is in them");
  show->require_subcommand(0, 1);
  add_show_ports(*show, line);
  add_show_port(*show, line);
  add_show_controllers(*show, line);
  add_show_module(*show, line);
  add_show_node(*show, line);
  add_show_pm(*show, line);
  add_show_alarms(*show, line);
}

int show(const command_line &line, const std::string &target,
         const std::function<void(const json &)> &print) {
  const api_result result = [&] {
    const progress bar("waiting for the driver");
    return call(line.socket, "GET", target);
  }();
  if (result.what == outcome::refused) return fail(exit_refused, result.error);
  if (result.what == outcome::unreachable) return fail(exit_unreachable, result.error);
  if (line.as_json) {
    fmt::print("{}\n", result.body.dump(2, ' ', false, json::error_handler_t::replace));
    return exit_done;
  }
  try {
    print(result.body);
  } catch (const json::exception &) {
    return fail(exit_unreachable, "the driver's answer lacks something; is it another version?");
  }
  return exit_done;
}

int fail(int status, const std::string &why) {
  fmt::print(stderr, "lumctl: {}\n", why);
  return status;
}

}  // namespace lumctl
