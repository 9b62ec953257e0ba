// A slot, or one of its instances, as it is typed.
#pragma once

#include <string>

#include "api/json.h"

namespace lumctl {

// Reads SLOT or SLOT/INSTANCE into the members "slot" and "instance" of a request's body; says what
// is wrong with it, or nothing.
std::string read_place(const std::string &text, json &body);

std::string check_place(const std::string &text);

}  // namespace lumctl
