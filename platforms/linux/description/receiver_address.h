// The address of whoever takes datagrams, as a description gives it.
#pragma once

#include <optional>
#include <string>

#include "lum_linux/node_description.h"

namespace lum_linux {

// Whether the text is an address, and no name, of the family AF_INET or AF_INET6.
bool is_numeric_address(int family, const std::string &text);

// Of "192.0.2.1:514" or "[2001:db8::1]:514"; nothing of anything else. A name is none: whoever
// looks it up may not answer.
std::optional<receiver_address> read_receiver_address(const std::string &text);

}  // namespace lum_linux
