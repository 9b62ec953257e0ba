// Names of controller interfaces, <letters><rack>_<slot>_<instance>_<port>[_<sub-port>], such as
// Ots0_3_0_7_1. imc.h offers the library the same parser.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lum_linux {

struct interface_name {
  std::string_view type;  // the letters, at most 31; within the text that was parsed
  uint32_t rack = 0;
  uint32_t slot = 0;
  uint32_t instance = 0;
  uint32_t port = 0;
  std::optional<uint32_t> sub_port;
};

// Takes a name of at most 63 bytes apart. Nothing but the whole of it will do: no blanks, no signs,
// no number beyond 32 bits.
std::optional<interface_name> parse_interface_name(std::string_view name);

// The name of a port's controller of the type Ots.
std::string ots_interface_name(uint32_t rsip, uint32_t sub_port);

}  // namespace lum_linux
