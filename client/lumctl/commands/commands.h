// The commands, each of which puts itself into the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "api/client.h"
#include "terminal/style.h"

namespace lumctl {

constexpr int exit_done = 0;
constexpr int exit_refused = 1;
constexpr int exit_usage = 2;
constexpr int exit_unreachable = 3;

struct command_line {
  std::string socket;
  bool as_json = false;
  style output;
  std::function<int()> chosen;  // what the command given does
};

// The parent of the show commands, which are below it.
void add_show(CLI::App &app, command_line &line);
void add_show_ports(CLI::App &show, command_line &line);
void add_show_port(CLI::App &show, command_line &line);
void add_show_controllers(CLI::App &show, command_line &line);
void add_show_module(CLI::App &show, command_line &line);
void add_show_node(CLI::App &show, command_line &line);
void add_show_pm(CLI::App &show, command_line &line);
void add_show_alarms(CLI::App &show, command_line &line);
void add_port(CLI::App &app, command_line &line);
void add_set(CLI::App &app, command_line &line);
void add_module(CLI::App &app, command_line &line);
void add_replay(CLI::App &app, command_line &line);
void add_resync(CLI::App &app, command_line &line);
void add_im(CLI::App &app, command_line &line);
void add_watch(CLI::App &app, command_line &line);
void add_clear(CLI::App &app, command_line &line);
void add_inject(CLI::App &app, command_line &line);
void add_ea(CLI::App &app, command_line &line);
void add_completion(CLI::App &app, command_line &line);

// Gets `target` and prints it: as JSON when that was asked for, else through `print`. Returns the
// exit status.
int show(const command_line &line, const std::string &target,
         const std::function<void(const json &)> &print);

// One line on standard error.
int fail(int status, const std::string &why);

}  // namespace lumctl
