// One sub-port on the command line: NAME:SUBPORT.
#pragma once

#include <optional>
#include <string>

namespace lumctl {

struct sub_port_name {
  std::string port;
  unsigned sub_port = 0;
};

// Nothing unless the text ends in ":0" or ":1".
std::optional<sub_port_name> read_sub_port_name(const std::string &text);

// Empty, or what is wrong with the text.
std::string check_sub_port_name(const std::string &text);

}  // namespace lumctl
