// Commands that change something.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "commands/commands.h"

namespace lumctl {

// How a command wants to go on.
struct waiting {
  double seconds = 5;
};

// Adds --wait; what the request's body says about it.
std::shared_ptr<waiting> add_wait(CLI::App &command);
void put_wait(const waiting &wanted, json &body);

// Posts `body` to `target` and prints the reply: as JSON when that was asked for, else through
// `print`. What has not come about is a failure, unless nobody wanted to wait for it. Returns the
// exit status.
int change(const command_line &line, const std::string &target, const json &body,
           const std::function<void(const json &)> &print, bool must_be_complete = true);

// The same for a command that may be told to wait.
int change(const command_line &line, const std::string &target, json body, const waiting &wanted,
           const std::function<void(const json &)> &print);

// Puts --json and what the command does into its definition.
void finish(CLI::App &command, command_line &line, std::function<int()> action);

}  // namespace lumctl
