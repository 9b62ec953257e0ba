// What the driver may change in the file system, for as long as it runs.
#pragma once

#include <string>

#include "lum_linux/node_description.h"

namespace lumd {

// Lets this thread and all that it starts later change nothing but the node's own folders, the
// files of its modules, LEDs and buses, and execute nothing. Everything can be read as before.
// Folders that are to be written to have been made already. Returns what stands against it, such as
// a kernel without Landlock; nothing when it is done. It cannot be undone.
std::string confine_writes(const lum_linux::node_description &node);

}  // namespace lumd
