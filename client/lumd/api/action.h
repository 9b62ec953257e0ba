// What changes something: runs on a thread of its own, because a module that hangs holds it up for
// as long as it hangs, and replies within a bound all the same.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "api/reply.h"

namespace lumd {

class driver;

// So much longer may an action take than it is to wait for confirmations.
inline constexpr std::chrono::milliseconds wait_margin(3000);

// Actions that wait for the same thing wait in one lane; they never hold up those of another.
using action_lane = uint64_t;
constexpr action_lane lane_of_port(uint32_t rsip) { return rsip; }
// What makes a module go on must get past everything that waits for it.
constexpr action_lane lane_of_remedy(uint32_t rsip) { return uint64_t{1} << 32 | rsip; }
constexpr action_lane lane_of_look(uint32_t rsip) { return uint64_t{2} << 32 | rsip; }
constexpr action_lane lane_of_slot(uint32_t slot) { return uint64_t{3} << 32 | slot; }
constexpr action_lane replay_lane = uint64_t{4} << 32;
constexpr action_lane agent_lane = uint64_t{5} << 32;
constexpr action_lane interface_manager_lane = uint64_t{6} << 32;

// Runs `work` once the earlier actions of its lane have ended, and returns its reply. Work that has
// not ended after `bound` goes on alone, and the reply says so (202); when too much waits in the
// lane already, `work` is not begun (503). What it uses must live until the process ends. An
// exception of it becomes this call's.
api_reply act(driver &node, action_lane lane, std::chrono::milliseconds bound,
              std::function<api_reply()> work);

}  // namespace lumd
