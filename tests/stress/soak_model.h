// What a port's LED, readings and bitmaps have to be, worked out from its module's bytes alone.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "crew.h"
#include "node.h"

namespace stress {

// The bytes of a module that monitoring looks at.
struct module_bytes {
  std::array<uint8_t, 128> lower;
  std::array<uint8_t, 23> chunk;  // page 1 from 192, or page 3 from 128
};

// Gives the monitored bytes of a module new values, its fault flags included.
void randomise_module(node &node, const port_place &port, random_engine &random);
module_bytes look_into_module(node &node, const port_place &port);

// Whether the port's module has the newer memory map.
bool has_new_map(const port_place &port);
std::string soak_module(const port_place &port);

// Everything about the port that is not as the bytes demand.
std::vector<std::string> differences(node &node, const port_place &port, const module_bytes &bytes);

}  // namespace stress
