// The controllers: what there is, and what is asked of all of them.
#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "node/controller_actions.h"
#include "views/action_view.h"
#include "views/im_view.h"

namespace lumd {
namespace {

api_reply get_controllers(driver &node, const api_request &) {
  return {200, show_controllers(node)};
}

api_reply post_replay(driver &node, const api_request &request) {
  request_body body(request.body);
  const wait_time wait = body.wait();
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, replay_lane, wait + wait_margin,
             [&node, wait] { return reply_to(replay_controllers(node, wait), show_replay); });
}

api_reply post_resync(driver &node, const api_request &request) {
  const request_body body(request.body);
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, agent_lane, wait_margin, [] {
    return api_reply{200, show_action(ask_for_resync())};
  });
}

}  // namespace

std::span<const route> controller_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/controllers", get_controllers},
      {"POST", "/v1/controllers/replay", post_replay},
      {"POST", "/v1/controllers/resync", post_resync},
  };
  return routes;
}

}  // namespace lumd
