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

// The port that the request names, or every port. Refuses one that the node does not have.
api_reply wanted_ports(driver &node, const std::optional<std::string> &name, port_list &ports) {
  if (!name) {
    ports = node.node().ports();
    return {};
  }
  const auto *port = find_port(node.node(), *name);
  if (port == nullptr) return refuse_unknown_port(*name);
  ports = {port};
  return {};
}

std::optional<std::string> queried(const api_request &request, const std::string &key) {
  const auto found = request.query.find(key);
  return found == request.query.end() ? std::nullopt : std::optional(found->second);
}

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
  port_list ports;
  const api_reply refused = wanted_ports(node, queried(request, "port"), ports);
  if (refused.status != 200) return refused;
  return {200, show_pm(ports, bins)};
}

// Those with an alarm, or all that the alarm service knows with ?all=true.
api_reply get_alarms(driver &node, const api_request &request) {
  return {200, show_alarms(node, queried(request, "all").value_or("false") == "true")};
}

api_reply post_clear(driver &node, const api_request &request) {
  request_body body(request.body);
  const auto name = body.optional_text("port");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  port_list ports;
  if (const api_reply refused = wanted_ports(node, name, ports); refused.status != 200) {
    return refused;
  }
  return reply_to(clear_statistics(ports), show_clear);
}

constexpr route routes[] = {
    {"GET", "/v1/pm", get_pm},
    {"GET", "/v1/alarms", get_alarms},
    {"POST", "/v1/statistics/clear", post_clear},
};

}  // namespace

std::span<const route> monitoring_routes() { return routes; }

}  // namespace lumd
