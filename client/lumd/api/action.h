// What changes something: runs on a thread of its own, because a module that hangs holds it up for
// as long as it hangs, and replies within a bound all the same.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>

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
constexpr action_lane store_lane = uint64_t{7} << 32;

// Runs `work` once the earlier actions of its lane have ended, and returns its reply. Work that has
// not ended after `bound` goes on alone, and the reply says so (202); when too much waits in the
// lane already, `work` is not begun (503). What it uses must live until the process ends. An
// exception of it becomes this call's.
api_reply act(driver &node, action_lane lane, std::chrono::milliseconds bound,
              std::function<api_reply()> work);

// Posts `work` into its lane. Says why it will not be done; empty when it will.
std::string post_work(action_lane lane, std::function<void()> work);

// A look at something that may be long in coming.
template <typename Result>
class pending_look {
 public:
  pending_look(action_lane lane, std::function<Result()> work) {
    const auto task = std::make_shared<std::packaged_task<Result()>>(std::move(work));
    result_ = task->get_future();
    reason_ = post_work(lane, [task] { (*task)(); });
  }

  // What was seen by `deadline`, or `otherwise` of why nothing was. Once.
  template <typename Otherwise>
  Result by(std::chrono::steady_clock::time_point deadline, const Otherwise &otherwise) {
    if (!reason_.empty()) return otherwise(reason_);
    if (result_.wait_until(deadline) == std::future_status::ready) return result_.get();
    return otherwise("there is no answer yet");
  }

 private:
  std::future<Result> result_;
  std::string reason_;
};

}  // namespace lumd
