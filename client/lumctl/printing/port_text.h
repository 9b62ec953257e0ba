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

// What a module tells of itself, in members that a port and a decoded dump have both: its vendor
// and numbers; its temperature, supply and flags; a sub-port's readings and status bytes; and which
// memory map it has, to stand behind its firmware.
std::string describe_identity_of_module(const json &shown);
std::string describe_measured(const json &shown);
std::string describe_readings(const json &sub_port);
std::string describe_memory_map_of(const json &shown);

}  // namespace lumctl
