// lumctl: talks to the driver.
#include <cstdlib>

#include "command_line/command_line.h"
#include "commands/commands.h"

namespace {

constexpr const char *default_socket = "/run/lumd/lumd.sock";

}  // namespace

int main(int argc, char **argv) {
  const char *from_environment = std::getenv("LUMD_SOCKET");
  const lumctl::session now = {{from_environment != nullptr ? from_environment : default_socket},
                               lumctl::style_of_output()};
  return lumctl::run_command_line(lumctl::all_commands(), now, argc, argv);
}
