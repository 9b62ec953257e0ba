#include "terminal/printable.h"

namespace lumctl {

std::size_t display_width(const std::string &text) {
  std::size_t width = 0;
  for (const char c : text) {
    const bool continues = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
    if (!continues) ++width;
  }
  return width;
}

}  // namespace lumctl
