// What the driver says to whoever runs it: one line on standard error, when something changes.
#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <string>

namespace lumd {

template <typename... Arguments>
void say(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
  const std::string line =
      fmt::format("lumd: {}\n", fmt::format(format, std::forward<Arguments>(arguments)...));
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace lumd
