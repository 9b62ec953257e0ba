#include "node/controller_actions.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "lum.h"
#include "node/driver.h"
#include "node/im_request.h"
#include "node/port_data.h"
#include "node/settings.h"

namespace lumd {
namespace {

using lum_linux::im_controller;
using clock = std::chrono::steady_clock;

// What the interface manager knows of a port's controllers.
using controller_pair = std::array<im_controller, LUM_SUB_PORTS>;

controller_pair controllers_of(driver &node, uint32_t rsip) {
  controller_pair pair;
  const auto copy = copy_port(rsip);
  if (!copy) return pair;
  for (const im_controller &controller : node.platform().im().controllers()) {
    for (std::size_t s = 0; s < LUM_SUB_PORTS; ++s) {
      if (controller.handle == copy->data.sub_port[s].ifhandle) pair[s] = controller;
    }
  }
  return pair;
}

bool are_updated(const controller_pair &before, const controller_pair &now, uint32_t state) {
  for (std::size_t s = 0; s < LUM_SUB_PORTS; ++s) {
    if (now[s].handle == 0 || now[s].state != state || now[s].updates == before[s].updates) {
      return false;
    }
  }
  return true;
}

void count_confirmed(driver &node, replay_report &report) {
  report.controllers = 0;
  report.confirmed = 0;
  for (const auto &[rsip, port] : copy_ports()) {
    if (is_going(port)) continue;
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      ++report.controllers;
      const auto handle = node.platform().im().handle_of(text_of(controller.ifname));
      if (controller.created != 0 && handle == controller.ifhandle) ++report.confirmed;
    }
  }
}

bool has_settings(const port_copy &port) {
  return std::any_of(std::begin(port.data.port_cfg), std::end(port.data.port_cfg),
                     [](const lum_port_cfg &one) { return one.changed_bits != 0; });
}

refusal not_now(const std::string &reason) { return {refusal_kind::conflict, reason}; }

}  // namespace

outcome<update_report> update_port(driver &node, const lum_linux::port_description &port,
                                   uint32_t state, wait_time wait) {
  const auto copy = copy_port(port.rsip);
  if (!copy) return not_now(fmt::format("port {} does not exist", port.name));
  if (is_going(*copy)) return not_now(fmt::format("port {} is being deleted", port.name));

  const auto deadline = clock::now() + wait;
  const controller_pair before = controllers_of(node, port.rsip);
  update_report report;
  im_request request(node, "update");
  const module_writing writing(node, port.rsip);
  report.rc = lum_update_port(port.rsip >> 24, port.rsip >> 16 & 0xFF, port.rsip >> 8 & 0xFF,
                              port.rsip & 0xFF, state);
  if (state != 0 && has_settings(*copy)) report.module_written = writing.has_reached();
  request.sent(report.rc);
  wait_for_answers(node, deadline, [&] { return request.is_settled(); });
  report.missing = request.problem(wait);
  report.pending = request.is_pending();
  if (report.missing.empty() && !are_updated(before, controllers_of(node, port.rsip), state)) {
    report.missing = "the interface manager does not have the controllers that it was told of";
  }
  return report;
}

outcome<replay_report> replay_controllers(driver &node, wait_time wait) {
  replay_report report;
  auto turn = node.turns().take_all(std::max<wait_time>(wait, wait_time(1000)));
  if (!turn) return not_now("a creation or deletion of ports is under way");
  const auto deadline = clock::now() + wait;
  im_request request(node, "replay");
  {
    // The library clears what it has polled of every port.
    const auto held = node.feed().hold();
    node.cages().forget_all();
    report.rc = lum_replay_controllers();
    node.cages().renew_all();
  }
  turn.end();
  request.sent(report.rc);
  wait_for_answers(node, deadline, [&] { return request.is_settled(); });
  count_confirmed(node, report);
  if (!request.is_good()) report.confirmed = 0;  // the library takes over all of them, or none
  report.missing = request.problem(wait);
  report.pending = request.is_pending();
  if (report.missing.empty() && report.confirmed != report.controllers) {
    report.missing = fmt::format("the interface manager has confirmed {} of {} controllers",
                                 report.confirmed, report.controllers);
  }
  return report;
}

action_report ask_for_resync() {
  lum_resync_with_ea();
  return {};
}

outcome<clear_report> clear_statistics(const port_list &ports) {
  std::vector<uint32_t> ifhandles;
  each_sub_port(ports, [&](const auto &, const port_copy &copy, std::size_t sub_port) {
    const lum_sub_port_intf &controller = copy.data.sub_port[sub_port];
    if (controller.created != 0) ifhandles.push_back(controller.ifhandle);
  });
  if (ifhandles.empty()) return not_now("there is no controller whose statistics to clear");
  clear_report report;
  report.rc = lum_lib_clear_stats(static_cast<int32_t>(ifhandles.size()), ifhandles.data());
  report.controllers = ifhandles.size();
  if (!CERR_IS_OK(report.rc)) {
    report.missing = "the last controller's statistics could not be cleared";
  }
  return report;
}

}  // namespace lumd
