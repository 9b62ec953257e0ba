// The API, one group of routes per subject.
#pragma once

#include <span>

#include "router.h"

namespace lumd {

std::span<const route> port_routes();
std::span<const route> controller_routes();
std::span<const route> module_routes();
std::span<const route> node_routes();
std::span<const route> lifecycle_routes();
std::span<const route> settings_routes();
std::span<const route> module_action_routes();
std::span<const route> im_routes();
std::span<const route> monitoring_routes();
std::span<const route> inject_routes();
std::span<const route> entity_agent_routes();
std::span<const route> metrics_routes();

// Answers a request from all of them.
http_reply answer(driver &node, const http_request &request);

}  // namespace lumd
