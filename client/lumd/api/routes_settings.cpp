// A sub-port's settings.
#include <fmt/format.h>

#include <limits>

#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "node/settings.h"
#include "views/action_view.h"

namespace lumd {
namespace {

constexpr std::chrono::seconds bound(5);

wanted_settings read_settings(request_body &body) {
  wanted_settings wanted;
  for (const setting &setting : settings) {
    const std::string name = lum_words::member_of(setting.name());
    const json *value = body.member(name);
    if (value == nullptr) continue;
    const int64_t least = setting.is_signed ? std::numeric_limits<int32_t>::min() : 0;
    constexpr int64_t most = std::numeric_limits<uint32_t>::max();
    const bool is_whole = value->is_number_integer() &&
                          !(value->is_number_unsigned() && value->get<uint64_t>() > uint64_t{most});
    const int64_t number = is_whole ? value->get<int64_t>() : -1;
    if (!is_whole || number < least || number > most) {
      body.complain(fmt::format("\"{}\" is not a whole number from {} to {}", name, least, most));
    }
    wanted[&setting] = static_cast<uint32_t>(number);
  }
  return wanted;
}

api_reply post_settings(driver &node, const api_request &request) {
  const port_place place = find_place(node.node(), request.parameters[0]);
  if (!place) return refuse_port(node.node(), request.parameters[0]);
  const auto *port = place.port;
  request_body body(request.body);
  const auto given = body.optional_number("sub_port", 0, LUM_SUB_PORTS - 1);
  if (given && place.sub_port && *given != *place.sub_port) {
    body.complain(fmt::format("\"sub_port\" is {}, and the path says {}", *given, *place.sub_port));
  }
  const uint32_t sub_port = place.sub_port.value_or(given.value_or(0));
  const wanted_settings wanted = read_settings(body);
  if (wanted.empty() && body.wrong().empty()) body.complain("there is no setting in the body");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, lane_of_port(port->rsip), bound, [&node, port, sub_port, wanted] {
    return reply_to(change_settings(node, *port, sub_port, wanted, bound / 2),
                    [&](const settings_report &report) {
                      return show_settings_change(report, *port, sub_port);
                    });
  });
}

constexpr route routes[] = {
    {"POST", "/v1/ports/{}/settings", post_settings},
};

}  // namespace

std::span<const route> settings_routes() { return routes; }

}  // namespace lumd
