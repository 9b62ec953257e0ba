// The settings of sub-ports: looked at and changed.
#include <fmt/format.h>

#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "api/settings_looks.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "node/settings.h"
#include "views/action_view.h"
#include "views/configuration_view.h"
#include "views/times.h"

namespace lumd {
namespace {

constexpr std::chrono::seconds settings_bound(5);

wanted_settings read_settings(request_body &body) {
  wanted_settings wanted;
  for (const setting &setting : settings) {
    const std::string name = lum_words::member_of(setting.name());
    const json *value = body.member(name);
    if (value == nullptr) continue;
    const auto [least, most, why] = setting.range;
    const bool is_whole =
        value->is_number_integer() &&
        !(value->is_number_unsigned() && value->get<uint64_t>() > static_cast<uint64_t>(most));
    const int64_t number = is_whole ? value->get<int64_t>() : least - 1;
    if (number < least || number > most) {
      body.complain(
          fmt::format("\"{}\" is not a whole number from {} to {}{}", name, least, most, why));
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
  const bool is_rehearsal = body.optional_boolean("dry_run", false);
  const wanted_settings wanted = read_settings(body);
  if (wanted.empty() && body.wrong().empty()) body.complain("there is no setting in the body");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  if (is_rehearsal) {
    return reply_to(rehearse_change(*port, sub_port, wanted), [&](const settings_report &report) {
      return show_rehearsal(report, *port, sub_port);
    });
  }
  return act(node, lane_of_port(port->rsip), settings_bound,
             [&node, port, sub_port, wanted, by = request.user] {
               return reply_to(
                   change_settings(node, *port, sub_port, wanted, by, settings_bound / 2),
                   [&](const settings_report &report) {
                     return show_settings_change(report, *port, sub_port);
                   });
             });
}

// With ?module=true each module is asked too, else the library and the store alone.
api_reply get_settings(driver &node, const api_request &request) {
  const auto name = request.query.find("port");
  const bool is_one = name != request.query.end();
  const port_place place = is_one ? find_place(node.node(), name->second) : port_place{};
  if (is_one && !place) return refuse_port(node.node(), name->second);
  std::string wrong;
  const bool asks_modules = is_queried(request, "module", wrong);
  if (!wrong.empty()) return refuse(400, wrong);
  const std::string asked_at = utc_text(std::chrono::system_clock::now());
  const port_list ports = is_one ? port_list{place.port} : node.node().ports();
  json shown = json::array();
  for (const settings_look &at : look_at_settings(node, ports, asks_modules)) {
    shown.push_back(show_settings(at, node.node().units));
    keep_sub_port(place.sub_port, shown.back().at("sub_ports"));
  }
  return {200, {{"node", node.node().name}, {"asked_at", asked_at}, {"ports", std::move(shown)}}};
}

}  // namespace

std::span<const route> settings_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/settings", get_settings, {"port", "module"}},
      {"POST", "/v1/ports/{name}/settings", post_settings},
  };
  return routes;
}

}  // namespace lumd
