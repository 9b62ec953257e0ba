#include "terminal/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace lumctl {
namespace {

constexpr std::size_t columns_unless_known = 120;
constexpr std::size_t rows_unless_known = 24;

// Zeros where the terminal does not know, or there is none.
winsize size_of_output() {
  winsize size = {};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size : winsize{};
}

}  // namespace

std::size_t columns_to_fold_to() {
  if (const char *asked = std::getenv("COLUMNS")) {
    const std::string_view text = asked;
    std::size_t columns = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), columns);
    if (error == std::errc() && end == text.data() + text.size() && columns > 0) return columns;
  }
  return ::isatty(STDOUT_FILENO) == 1 ? screen_size().columns : 0;
}

bool is_steerable(int descriptor) {
  const char *kind = std::getenv("TERM");
  return ::isatty(descriptor) == 1 && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

room screen_size() {
  const winsize size = size_of_output();
  return {size.ws_col > 0 ? size.ws_col : columns_unless_known,
          size.ws_row > 0 ? size.ws_row : rows_unless_known};
}

}  // namespace lumctl
