// How the node fares, for those who watch over it.
#pragma once

#include "views/json.h"

namespace lumd {

class driver;

// "status", the worst of the "findings", and how many ports are in which state.
json show_health(driver &node);

// How the driver itself is: "ok" and, where it is not, a "reason".
json show_liveness(driver &node);

// Whether every port of the description has been asked for: "ready" and a "reason".
json show_readiness(driver &node);

}  // namespace lumd
