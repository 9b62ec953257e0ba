// The names of a node's ports. Whoever asks for a port gives its name or its position, either of
// them with a sub-port behind it, so no name may say any of that of another port.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "description/toml_table.h"

namespace lum_linux {

struct port_name {
  std::string name;
  uint32_t line = 0;     // where it stands
  std::string position;  // "rack/slot/instance/port"; empty when it is not known
};

class port_names {
 public:
  void add(port_name one) { all_.push_back(std::move(one)); }

  // Reports the names that mean more than one port. That two ports have the same is left to others.
  void refuse_ambiguous(problem_list &problems) const;

 private:
  std::vector<port_name> all_;
};

}  // namespace lum_linux
