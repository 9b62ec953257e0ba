#include "terminal/style.h"

#include <unistd.h>

#include <cstdlib>

#include "terminal/terminal.h"

namespace lumctl {
namespace {

const char *escape_of(colour paint) {
  switch (paint) {
    case colour::none:
      return "";
    case colour::good:
      return "\x1b[32m";
    case colour::bad:
      return "\x1b[31m";
    case colour::warning:
      return "\x1b[33m";
    case colour::faint:
      return "\x1b[2m";
    case colour::strong:
      return "\x1b[1m";
  }
  return "";
}

}  // namespace

style style_of_output() {
  const char *no_colour = std::getenv("NO_COLOR");
  const bool wanted = no_colour == nullptr || *no_colour == '\0';
  return {wanted && is_steerable(STDOUT_FILENO), columns_to_fold_to()};
}

std::string painted(const style &where, const std::string &text, colour paint) {
  if (!where.colours || paint == colour::none) return text;
  return escape_of(paint) + text + "\x1b[0m";
}

std::string marked(const style &where, const std::string &text, colour paint) {
  if (!where.colours) return text + change_mark;
  return std::string("\x1b[7m") + escape_of(paint) + text + "\x1b[0m";
}

}  // namespace lumctl
