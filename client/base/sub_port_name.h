// One sub-port in a word: NAME:SUBPORT.
#pragma once

#include <optional>
#include <string>

namespace lum_client {

struct sub_port_name {
  std::string port;
  unsigned sub_port = 0;
};

// Nothing unless the text ends in a colon and one digit, with a name before them. Whether the port
// has such a sub-port, or another port the whole text for its name, is for the node to say.
std::optional<sub_port_name> read_sub_port_name(const std::string &text);

}  // namespace lum_client
