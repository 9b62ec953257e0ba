// One port in full, for people.
#pragma once

#include <string>

#include "api/client.h"
#include "terminal/style.h"

namespace lumctl {

// Identity, state, readings and transfers.
std::string describe_port(const json &port, const style &where);

// A sub-port's settings and which of them have been set.
std::string describe_configuration(const json &configuration);

// 256 bytes of a module, 16 a line, with the characters they are.
std::string hex_dump(const json &page);

}  // namespace lumctl
