// What the driver says to whoever runs it: one line on standard error, when something changes.
#pragma once

#include <fmt/format.h>
#include <unistd.h>

#include <cstddef>
#include <string_view>

#include "lum_linux/system.h"

namespace lumd {

// Writes a line, unless nobody takes it within a moment. Any thread.
template <typename... Arguments>
void say(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
  lum_linux::say_line(
      fmt::format("lumd: {}\n", fmt::format(format, std::forward<Arguments>(arguments)...)));
}

// What failed and why, without memory too. Both may be cut.
inline void say_failed(const char *what, const char *why) {
  char line[512];
  const auto end = fmt::format_to_n(line, sizeof line - 1, "lumd: {}{}", what, why).out;
  *end = '\n';
  lum_linux::say_line({line, static_cast<std::size_t>(end - line) + 1});
}

// As say(), behind the priority (of syslog(3), 0 to 7) that a journal sorts lines by; a terminal's
// reader is spared it.
inline void say_at(int priority, std::string_view text) {
  static const bool is_terminal = ::isatty(STDERR_FILENO) == 1;
  lum_linux::say_line(is_terminal ? fmt::format("lumd: {}\n", text)
                                  : fmt::format("<{}>lumd: {}\n", priority, text));
}

}  // namespace lumd
