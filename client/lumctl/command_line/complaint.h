// What is wrong with the words of a command line.
#pragma once

#include <string>
#include <vector>

#include "command_line/command.h"

namespace lumctl {

// The first word that is no command, no option or one too many, with the one that was most likely
// meant; empty when every word has its place.
std::string complaint_of_words(const command &lumctl, const std::vector<std::string> &words);

// That the words lead to no command yet, with those that there are.
std::string complaint_of_missing(const command &lumctl, const std::vector<std::string> &words);

}  // namespace lumctl
