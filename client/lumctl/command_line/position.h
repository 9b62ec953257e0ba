// How far the words of a command line lead through the records of the commands.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "command_line/command.h"

namespace lumctl {

struct position {
  const command *lumctl = nullptr;  // the whole of it
  const command *at = nullptr;      // the command reached
  std::string path;                 // the words that lead there, such as "show ports"
  std::size_t arguments = 0;        // that stand behind it
  const option *waiting = nullptr;  // for its value
  destination driver;
};

position start_at(const command &lumctl, const destination &driver);

// Takes in what an option of lumctl itself says of where the driver is; of another, nothing.
void put_destination(destination &driver, std::string_view option, const std::string &text);

// Takes the next word in.
void pass(position &now, const std::string &word);

// The argument that stands next, or null; the last one may stand again.
const argument *next_argument(const position &now);

// The options that may stand here: the command's own, and those of lumctl itself.
std::vector<const option *> options_at(const position &now);
const option *option_at(const position &now, std::string_view name);

// "--name" or "--name=value"
bool is_option(std::string_view word);
std::string_view name_of_option(std::string_view word);

// "-n", where that is the letter of an option that may stand here
bool is_letter(const position &now, std::string_view word);

// The names of the commands below one, but the hidden ones.
std::vector<std::string> names_below(const command &at);

}  // namespace lumctl
