// What the shell may offer next.
#pragma once

#include <string>
#include <vector>

#include "command_line/command.h"

namespace lumctl {

// The words that may stand for the last of `words`, which follow "lumctl" on a command line and may
// be empty: commands, options, fixed values, and names that a running driver tells. Without a
// driver there are no names.
std::vector<std::string> candidates(const command &lumctl, const session &now,
                                    const std::vector<std::string> &words);

}  // namespace lumctl
