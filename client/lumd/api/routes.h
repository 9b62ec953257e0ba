// The API, one group of routes per subject.
#pragma once

#include <span>
#include <vector>

#include "api/router.h"

namespace lumd {

std::span<const route> port_routes();
std::span<const route> controller_routes();
std::span<const route> module_routes();
std::span<const route> node_routes();
std::span<const route> event_routes();
std::span<const route> health_routes();
std::span<const route> lifecycle_routes();
std::span<const route> settings_routes();
std::span<const route> module_action_routes();
std::span<const route> im_routes();
std::span<const route> monitoring_routes();
std::span<const route> inject_routes();
std::span<const route> entity_agent_routes();

// All of the above.
std::vector<std::span<const route>> api_routes();

}  // namespace lumd
