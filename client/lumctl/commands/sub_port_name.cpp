#include "commands/sub_port_name.h"

namespace lumctl {

std::optional<sub_port_name> read_sub_port_name(const std::string &text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) return std::nullopt;
  const std::string number = text.substr(colon + 1);
  if (number != "0" && number != "1") return std::nullopt;
  return sub_port_name{text.substr(0, colon), number == "1" ? 1U : 0U};
}

std::string check_sub_port_name(const std::string &text) {
  if (read_sub_port_name(text)) return {};
  return "\"" + text + "\" is not a port's name with :0 or :1";
}

}  // namespace lumctl
