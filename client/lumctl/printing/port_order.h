// In which order ports are shown.
#pragma once

#include <string>
#include <vector>

#include "api/json.h"

namespace lumctl {

// What a sort can be by: the names of the columns, and the worst ports first.
constexpr const char *worst_first = "worst";
std::vector<std::string> port_orders();

// Sorts "ports": texts ascending, numbers from the largest down, what is not known last; equal ones
// keep their order. `order` may be empty, which keeps the driver's.
void sort_ports(json &ports, const std::string &order, bool reversed);

}  // namespace lumctl
