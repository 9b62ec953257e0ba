// Ports come and go: what is asked of the library, and how it turned out.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "lum.h"
#include "lum_linux/node_description.h"
#include "node/outcome.h"
#include "node/port_snapshot.h"

namespace lumd {

using port_list = std::vector<const lum_linux::port_description *>;

// As the library is told of them.
std::vector<lum_port_props> props_of(const port_list &ports);

// The two together create what an instance does not have. Called in a turn at the slot; they
// return 0 or the library's code, after saying so. The first opens an instance that has no port.
cerrno open_when_empty(driver &node, uint32_t slot,
                       const lum_linux::instance_description &instance);
// Creates those of the ports that do not exist, all of one instance. Waits for the bus and the
// disk. Several threads may call it for different ports.
cerrno create_listed(driver &node, uint32_t slot, uint32_t instance,
                     const std::vector<lum_port_props> &ports);

// The rest waits for the library and the interface manager, but not much longer than `wait`.
using wait_time = std::chrono::milliseconds;

// One port of a creation or deletion, afterwards.
struct port_result {
  const lum_linux::port_description *port = nullptr;
  port_state state = port_state::absent;
  std::vector<uint32_t> ifhandles;  // of its sub-ports; none without the port
};

struct lifecycle_report : action_report {
  std::vector<port_result> ports;
};

// Creates what does not exist of one instance, or of all instances of a slot.
outcome<lifecycle_report> create_ports(driver &node, uint32_t slot,
                                       std::optional<uint32_t> instance, wait_time wait);

// Deletes some ports.
outcome<lifecycle_report> delete_ports(driver &node, const port_list &ports, wait_time wait);

// Deletes what exists of one instance, or of all instances of a slot, and closes them.
outcome<lifecycle_report> delete_slot(driver &node, uint32_t slot, std::optional<uint32_t> instance,
                                      wait_time wait);

// What a deletion would delete.
struct deletion_plan : action_report {
  port_list ports;
};

// Refuse what the deletions refuse, and delete nothing. Wait for nothing.
outcome<deletion_plan> plan_deletion(driver &node, const port_list &ports);
outcome<deletion_plan> plan_deletion(driver &node, uint32_t slot, std::optional<uint32_t> instance);

// Until `holds`: true; until the interface manager has answered all it was asked, or `deadline`:
// what it says then.
bool wait_for_answers(driver &node, std::chrono::steady_clock::time_point deadline,
                      const std::function<bool()> &holds);

}  // namespace lumd
