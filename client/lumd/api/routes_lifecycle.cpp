// Ports come and go, and change their controllers' state.
#include "api/action.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "api/settings_looks.h"
#include "lum.h"
#include "node/controller_actions.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "node/lifecycle.h"
#include "views/action_view.h"
#include "words/controller_states.h"

namespace lumd {
namespace {

using lum_words::controller_down;
using lum_words::controller_up;

api_reply post_create(driver &node, const api_request &request) {
  request_body body(request.body);
  const uint32_t slot = body.number("slot", 0, LUM_MAX_SLOTS - 1);
  const auto instance = body.optional_number("instance", 0, LUM_MAX_INSTANCES - 1);
  const wait_time wait = body.wait();
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(node, lane_of_slot(slot), wait + wait_margin, [&node, slot, instance, wait] {
    return reply_to(create_ports(node, slot, instance, wait), show_lifecycle);
  });
}

// Reads the member "ports", a list of names.
api_reply read_ports(driver &node, const json &names, port_list &ports) {
  if (!names.is_array() || names.empty()) {
    return refuse(400, "\"ports\" is not a list of port names");
  }
  for (const json &name : names) {
    if (!name.is_string()) return refuse(400, "\"ports\" is not a list of port names");
    const auto *port = find_port(node.node(), name.get<std::string>());
    if (port == nullptr) return refuse_port(node.node(), name.get<std::string>());
    ports.push_back(port);
  }
  return {};
}

// What a deletion would delete, and the settings that go with it.
api_reply rehearse(driver &node, const outcome<deletion_plan> &plan) {
  return reply_to(plan, [&node](const deletion_plan &what) {
    return show_plan(what, look_at_settings(node, what.ports, false));
  });
}

api_reply post_delete(driver &node, const api_request &request) {
  request_body body(request.body);
  const json *names = body.member("ports");
  const auto slot = body.optional_number("slot", 0, LUM_MAX_SLOTS - 1);
  const auto instance = body.optional_number("instance", 0, LUM_MAX_INSTANCES - 1);
  const bool is_rehearsal = body.optional_boolean("dry_run", false);
  const wait_time wait = body.wait();
  if ((names == nullptr) == !slot || (instance && !slot)) {
    body.complain("expected either \"ports\", or \"slot\" and possibly \"instance\"");
  }
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  if (slot && is_rehearsal) return rehearse(node, plan_deletion(node, *slot, instance));
  if (slot) {
    return act(node, lane_of_slot(*slot), wait + wait_margin, [&node, slot, instance, wait] {
      return reply_to(delete_slot(node, *slot, instance, wait), show_lifecycle);
    });
  }
  port_list ports;
  if (api_reply refused = read_ports(node, *names, ports); refused.status != 200) {
    return refused;
  }
  if (is_rehearsal) return rehearse(node, plan_deletion(node, ports));
  return act(
      node, lane_of_slot(ports.front()->rsip >> 16 & 0xFF), wait + wait_margin,
      [&node, ports, wait] { return reply_to(delete_ports(node, ports, wait), show_lifecycle); });
}

api_reply post_update(driver &node, const api_request &request) {
  const auto *port = find_port(node.node(), request.parameters[0]);
  if (port == nullptr) return refuse_port(node.node(), request.parameters[0]);
  request_body body(request.body);
  const std::string state = body.text("state");
  const wait_time wait = body.wait();
  if (state != controller_up && state != controller_down) {
    body.complain_of_word("state", state, lum_words::controller_states);
  }
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  const uint32_t number = state == controller_up ? 1 : 0;
  return act(node, lane_of_port(port->rsip), wait + wait_margin, [&node, port, number, wait] {
    return reply_to(update_port(node, *port, number, wait), [&](const update_report &report) {
      return show_update(report, *port, number);
    });
  });
}

}  // namespace

std::span<const route> lifecycle_routes() {
  static constexpr route routes[] = {
      {"POST", "/v1/ports/create", post_create},
      {"POST", "/v1/ports/delete", post_delete},
      {"POST", "/v1/ports/{name}/update", post_update},
  };
  return routes;
}

}  // namespace lumd
