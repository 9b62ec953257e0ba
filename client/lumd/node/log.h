// What the driver says to whoever runs it: one line on standard error, when something changes.
#pragma once

#include <fmt/format.h>

#include "lum_linux/system.h"

namespace lumd {

// Writes a line, unless nobody takes it within a moment. Any thread.
template <typename... Arguments>
void say(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
  lum_linux::say_line(
      fmt::format("lumd: {}\n", fmt::format(format, std::forward<Arguments>(arguments)...)));
}

}  // namespace lumd
