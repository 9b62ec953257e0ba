// What the service's unit lets through to the HTTP port, as the service manager has it in force.
#pragma once

#include <string>

namespace lumd {

// Says on standard error, from a thread of its own and once it is known, when the unit that this
// process runs in lets nobody but this machine reach `address`, which others may. Outside of a unit
// there is nothing to say. The thread waits for the service manager as long as that takes.
void tell_of_unit_filters(const std::string &address);

}  // namespace lumd
