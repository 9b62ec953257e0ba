// The command line, made from the records of the commands.
#pragma once

#include <string>

#include "command_line/command.h"

namespace lumctl {

// Reads the arguments of the process as `lumctl` describes them and does what they say. Returns the
// exit status.
int run_command_line(const command &lumctl, const session &now, int argc, const char *const *argv);

}  // namespace lumctl
