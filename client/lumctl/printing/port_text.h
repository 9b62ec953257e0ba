// One port in full, for people.
#pragma once

#include <string>

#include "api/json.h"
#include "terminal/style.h"

namespace lumctl {

// The port, its module and its sub-ports, a section each; `verbose` also with what is of use to
// those who look into the programs.
std::string describe_port(const json &port, bool verbose, const style &where);

// A sub-port's settings.
std::string describe_settings(const json &configuration);

// With the bits of those that have been set.
std::string describe_configuration(const json &configuration);

// A sub-port's readings; `verbose` with the words that they were made of and the status bytes.
std::string describe_readings(const json &sub_port, bool verbose);

}  // namespace lumctl
