#include "description/control_characters.h"

#include <cstddef>

namespace lum_linux {
namespace {

// The bytes of the control character at the beginning of a text; 0 when there is none.
std::size_t control_length(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x20 || first == 0x7F) return 1;
  if (first != 0xC2 || text.size() < 2) return 0;
  const auto second = static_cast<unsigned char>(text[1]);
  return second >= 0x80 && second <= 0x9F ? 2 : 0;
}

}  // namespace

bool has_control_character(std::string_view text) {
  for (; !text.empty(); text.remove_prefix(1)) {
    if (control_length(text) != 0) return true;
  }
  return false;
}

std::string without_control_characters(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = control_length(text);
    result += length == 0 ? text[0] : '?';
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result;
}

}  // namespace lum_linux
