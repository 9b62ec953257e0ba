// Inconsistencies that the process must not survive.
#pragma once

namespace lum {

// Writes the condition's text to standard error and the system log and aborts, in every build type.
[[noreturn]] void fatal(const char *condition, const char *area, int line, const char *function);

}  // namespace lum
