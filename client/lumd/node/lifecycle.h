// Ports come and go: what the API asks of the library, and how it turned out.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "cerr.h"
#include "lum_linux/node_description.h"
#include "router.h"

namespace lumd {

// Creates those ports of an instance that do not exist, and opens the instance when it has none.
// Returns 0 or the code of the first call that failed, after saying so. Called with the lifecycle
// held. Waits for the bus and the disk.
cerrno create_missing_ports(driver &node, uint32_t slot,
                            const lum_linux::instance_description &instance);

// The rest answers requests. Each waits for the library and the interface manager, but not much
// longer than `wait`; the reply is an action's.
using wait_time = std::chrono::milliseconds;

// Creates what does not exist of one instance, or of all instances of a slot.
api_reply create_ports(driver &node, uint32_t slot, std::optional<uint32_t> instance,
                       wait_time wait);

// Deletes some ports.
api_reply delete_ports(driver &node, const std::vector<const lum_linux::port_description *> &ports,
                       wait_time wait);

// Deletes what exists of one instance, or of all instances of a slot, and closes them.
api_reply delete_slot(driver &node, uint32_t slot, std::optional<uint32_t> instance,
                      wait_time wait);

// Sends a controller state to both controllers of a port.
api_reply update_port(driver &node, const lum_linux::port_description &port, uint32_t state,
                      wait_time wait);

// Asks for the controllers of every port again.
api_reply replay_controllers(driver &node, wait_time wait);

// Until `holds`: true; until the interface manager has answered all it was asked, or `deadline`:
// what it says then.
bool wait_for_answers(driver &node, std::chrono::steady_clock::time_point deadline,
                      const std::function<bool()> &holds);

}  // namespace lumd
