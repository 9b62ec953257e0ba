// Watches which cages have a module, and tells the library of modules that came or went: it takes
// every cage for filled until it is told otherwise.
#pragma once

namespace lumd {

class driver;

// Looks at every cage once. Waits for the bus when a module has come.
void watch_cages(driver &node);

}  // namespace lumd
