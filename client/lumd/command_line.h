// What lumd is started with.
#pragma once

#include <optional>
#include <string>

namespace lumd {

struct command_line {
  std::string config;
  std::string socket;  // empty: the description's
  bool check = false;
  bool alarm_tests = false;
};

constexpr int exit_failed = 1;
constexpr int exit_wrong_description = 2;

// Nothing when the process is to end, with `status`: the line was wrong, or has been answered.
std::optional<command_line> read_command_line(int argc, char **argv, int &status);

}  // namespace lumd
