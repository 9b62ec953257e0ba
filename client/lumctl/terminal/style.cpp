#include "terminal/style.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace lumctl {
namespace {

constexpr std::size_t columns_unless_known = 120;

std::size_t terminal_columns() {
  if (const char *asked = std::getenv("COLUMNS")) {
    const std::string_view text = asked;
    std::size_t columns = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), columns);
    if (error == std::errc() && end == text.data() + text.size() && columns > 0) return columns;
  }
  winsize size = {};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return columns_unless_known;
}

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

// The second byte of a two-byte control character, U+0080 to U+009F.
bool is_high_control(unsigned char first, unsigned char second) {
  return first == 0xC2 && second >= 0x80 && second <= 0x9F;
}

}  // namespace

style style_of_output() {
  const char *no_colour = std::getenv("NO_COLOR");
  const bool wanted = no_colour == nullptr || *no_colour == '\0';
  return {wanted && ::isatty(STDOUT_FILENO) == 1, terminal_columns()};
}

std::string painted(const style &where, const std::string &text, colour paint) {
  if (!where.colours || paint == colour::none) return text;
  return escape_of(paint) + text + "\x1b[0m";
}

std::string printable(const std::string &text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) {
      result += '?';
    } else if (i + 1 < text.size() &&
               is_high_control(byte, static_cast<unsigned char>(text[i + 1]))) {
      result += '?';
      ++i;
    } else {
      result += text[i];
    }
  }
  return result;
}

std::size_t display_width(const std::string &text) {
  std::size_t width = 0;
  for (const char c : text) {
    const bool continues = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
    if (!continues) ++width;
  }
  return width;
}

}  // namespace lumctl
