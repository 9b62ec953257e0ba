// What the driver says to whoever runs it: one line on standard error, when something changes.
#pragma once

#include <fmt/format.h>

#include <string>

namespace lumd {

// Writes a line, unless nobody takes it within a moment: a pipe that is not read must not hold up
// what has something to say. Any thread.
void say_line(const std::string &line);

template <typename... Arguments>
void say(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
  say_line(fmt::format("lumd: {}\n", fmt::format(format, std::forward<Arguments>(arguments)...)));
}

}  // namespace lumd
