// What performance monitoring and the alarm service keep.
#include <fmt/format.h>

#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "node/controller_actions.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "views/action_view.h"
#include "views/alarm_view.h"
#include "views/pm_view.h"
#include "wording/nearest.h"
#include "words/bins.h"

namespace lumd {
namespace {

api_reply get_pm(driver &node, const api_request &request) {
  std::optional<pm_bins> bins;
  if (const auto asked = queried(request, "bins")) {
    bins = pm_bins_of(*asked);
    if (!bins) {
      return refuse(400, fmt::format("the bins are \"{}\", expected one of {}{}", *asked,
                                     fmt::join(lum_words::bins, ", "),
                                     lum_wording::did_you_mean(*asked, lum_words::bins)));
    }
  }
  const auto name = queried(request, "port");
  const port_place place = name ? find_place(node.node(), *name) : port_place{};
  if (name && !place) return refuse_port(node.node(), *name);
  json shown = show_pm(node, name ? port_list{place.port} : node.node().ports(), bins);
  keep_sub_port(place.sub_port, shown.at("interfaces"));
  return {200, std::move(shown)};
}

// Those with an alarm, or all that the alarm service knows with ?all=true.
api_reply get_alarms(driver &node, const api_request &request) {
  std::string wrong;
  const bool all = is_queried(request, "all", wrong);
  if (!wrong.empty()) return refuse(400, wrong);
  return {200, show_alarms(node, all)};
}

api_reply post_clear(driver &node, const api_request &request) {
  request_body body(request.body);
  const auto name = body.optional_text("port");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  const auto *port = name ? find_port(node.node(), *name) : nullptr;
  if (name && port == nullptr) return refuse_port(node.node(), *name);
  return reply_to(clear_statistics(name ? port_list{port} : node.node().ports()), show_clear);
}

}  // namespace

std::span<const route> monitoring_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/pm", get_pm, {"port", "bins"}},
      {"GET", "/v1/alarms", get_alarms, {"all"}},
      {"POST", "/v1/statistics/clear", post_clear},
  };
  return routes;
}

}  // namespace lumd
