#include "api/action.h"

#include "lum_linux/lanes.h"
#include "node/driver.h"
#include "node/hold_up.h"
#include "views/action_view.h"

namespace lumd {
namespace {

// A thread for each of the largest node's lanes; few of them ever wait.
constexpr lum_linux::lane_limits limits = {2048, 8};

// Lives until the process ends, as what hangs in it does.
lum_linux::lanes &all_lanes() {
  static auto &the_lanes = *new lum_linux::lanes("lumd-action", limits);
  return the_lanes;
}

// Whether an action of the lane may want something of the port's module.
bool may_want(action_lane lane, uint32_t rsip) {
  if (lane == lane_of_port(rsip) || lane == lane_of_remedy(rsip) || lane == lane_of_look(rsip)) {
    return true;
  }
  return lane == lane_of_slot(rsip >> 16 & 0xFF) || lane == replay_lane || lane == agent_lane;
}

}  // namespace

std::string post_work(action_lane lane, std::function<void()> work) {
  switch (all_lanes().post(lane, std::move(work))) {
    case lum_linux::lane_verdict::taken:
      return {};
    case lum_linux::lane_verdict::full:
      return "too many actions wait for the same thing already";
    default:
      return "the system has no thread for one more action";
  }
}

api_reply act(driver &node, action_lane lane, std::chrono::milliseconds bound,
              std::function<api_reply()> work) {
  const auto task =
      std::make_shared<std::packaged_task<api_reply()>>([&node, work = std::move(work)] {
        api_reply reply = work();
        node.look_soon();
        return reply;
      });
  std::future<api_reply> reply = task->get_future();
  if (const auto refused = post_work(lane, [task] { (*task)(); }); !refused.empty()) {
    return refuse(503, refused);
  }
  if (reply.wait_for(bound) == std::future_status::ready) return reply.get();
  json body = {{"result", nullptr}};
  const auto concerns = [lane](uint32_t rsip) { return may_want(lane, rsip); };
  conclude(body, false, what_holds_up(node, concerns) + "; it goes on");
  return {202, std::move(body)};
}

}  // namespace lumd
