#include "base/printable.h"

namespace lum_client {
namespace {

// The second byte of a two-byte control character, U+0080 to U+009F.
bool is_high_control(unsigned char first, unsigned char second) {
  return first == 0xC2 && second >= 0x80 && second <= 0x9F;
}

}  // namespace

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

}  // namespace lum_client
