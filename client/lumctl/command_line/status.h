// How a command ended.
#pragma once

#include <string>

namespace lumctl {

constexpr int exit_done = 0;
constexpr int exit_refused = 1;
constexpr int exit_usage = 2;
constexpr int exit_unreachable = 3;

// Says why in one line on standard error; returns `status`.
int fail(int status, const std::string &why);

}  // namespace lumctl
