// One port in full, for people.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

// Identity, state, readings and transfers, and a page of the module's memory where there is one.
std::string describe_port(const json &port, const style &where);

// A sub-port's settings and which of them have been set.
std::string describe_configuration(const json &configuration);

}  // namespace lumctl
