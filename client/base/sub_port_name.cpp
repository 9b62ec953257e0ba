#include "base/sub_port_name.h"

namespace lum_client {

std::optional<sub_port_name> read_sub_port_name(const std::string &text) {
  constexpr std::size_t tail = 2;  // the colon and the digit
  if (text.size() <= tail) return std::nullopt;
  const std::size_t colon = text.size() - tail;
  const char digit = text.back();
  if (text[colon] != ':' || digit < '0' || digit > '9') return std::nullopt;
  return sub_port_name{text.substr(0, colon), static_cast<unsigned>(digit - '0')};
}

}  // namespace lum_client
