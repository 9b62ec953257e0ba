// What is wrong with the node, as far as the driver can tell.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "node/port_snapshot.h"
#include "words/findings.h"
#include "words/severities.h"

namespace lumd {

class driver;

using lum_words::severity;

struct finding {
  severity how_bad = severity::warning;
  std::string_view kind;  // a name of words/findings.h, or a port's state
  std::string port;       // empty where it is the node's
  std::string reason;
};

// The worst first, then in the order of the ports. What is as it should be is not among them: an
// empty cage is no finding, nor is a port that nobody has created.
std::vector<finding> findings_of(driver &node);
// The same, of ports that have been looked at just now.
std::vector<finding> findings_of(driver &node, const std::map<uint32_t, port_snapshot> &snapshots);
// Of those, what is not a port's own: of the driver, the stores and the traces. In no order.
std::vector<finding> findings_beside_ports(driver &node);
// And the rest, of ports that have been looked at just now. In no order.
std::vector<finding> findings_of_ports(driver &node,
                                       const std::map<uint32_t, port_snapshot> &snapshots);

}  // namespace lumd
