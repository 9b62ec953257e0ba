// lumctl: talks to the driver.
#include <fmt/format.h>

#include <cstdlib>

#include "commands/commands.h"

namespace {

constexpr const char *default_socket = "/run/lumd/lumd.sock";

}  // namespace

int main(int argc, char **argv) {
  using namespace lumctl;
  command_line line;
  line.output = style_of_output();
  const char *from_environment = std::getenv("LUMD_SOCKET");
  line.socket = from_environment != nullptr ? from_environment : default_socket;

  CLI::App app("Talks to lumd, the optics driver of one node.", "lumctl");
  app.require_subcommand(0, 1);
  app.add_option("--socket", line.socket, "The driver's socket; LUMD_SOCKET in the environment");
  app.set_version_flag("--version", "lumctl " LUMCTL_VERSION);
  app.footer("Exit status: 0 done, 1 refused or not found, 2 wrong usage, 3 driver not reachable.");
  add_show(app, line);
  add_port(app, line);
  add_set(app, line);
  add_module(app, line);
  add_replay(app, line);
  add_resync(app, line);
  add_im(app, line);
  add_watch(app, line);
  add_clear(app, line);
  add_inject(app, line);
  add_ea(app, line);
  add_completion(app, line);
  try {
    app.parse(argc, argv);
    if (!line.chosen) return fail(exit_usage, "a command is missing; try --help");
    return line.chosen();
  } catch (const CLI::Success &asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError &wrong) {
    return fail(exit_usage, fmt::format("{}; try --help", wrong.what()));
  } catch (const std::exception &error) {
    return fail(exit_refused, error.what());
  }
}
