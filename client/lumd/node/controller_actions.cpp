// What is asked of the controllers of ports that exist.
#include <fmt/format.h>

#include <array>
#include <cstring>
#include <mutex>

#include "action.h"
#include "driver.h"
#include "lifecycle.h"
#include "lum.h"
#include "port_data.h"

namespace lumd {
namespace {

using lum_linux::im_controller;

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

struct replay_state {
  std::size_t controllers = 0;  // of ports that are not on their way out
  std::size_t confirmed = 0;    // those of them that the interface manager has, by this handle
};

replay_state look_at_replay(driver &node) {
  replay_state state;
  for (const auto &[rsip, port] : copy_ports()) {
    if (is_going(port)) continue;
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      ++state.controllers;
      const std::string name(controller.ifname, strnlen(controller.ifname, LUM_IFNAME_SIZE));
      const auto handle = node.platform().im().handle_of(name);
      if (controller.created != 0 && handle == controller.ifhandle) ++state.confirmed;
    }
  }
  return state;
}

}  // namespace

api_reply update_port(driver &node, const lum_linux::port_description &port, uint32_t state,
                      wait_time wait) {
  const auto copy = copy_port(port.rsip);
  if (!copy) return refuse(409, fmt::format("port {} does not exist", port.name));
  if (is_going(*copy)) return refuse(409, fmt::format("port {} is being deleted", port.name));

  const auto deadline = action_clock::now() + wait;
  const controller_pair before = controllers_of(node, port.rsip);
  const cerrno rc = lum_update_port(port.rsip >> 24, port.rsip >> 16 & 0xFF, port.rsip >> 8 & 0xFF,
                                    port.rsip & 0xFF, state);
  const auto is_done = [&] { return are_updated(before, controllers_of(node, port.rsip), state); };
  const bool confirmed = CERR_IS_OK(rc) && wait_for_answers(node, deadline, is_done);
  json reply = {{"result", result_of(rc)}, {"name", port.name}, {"state", state}};
  conclude(reply, confirmed,
           CERR_IS_OK(rc) ? "the interface manager has not confirmed the update"
                          : fmt::format("the update was refused: {}", cerr_strerror(rc)));
  return {200, std::move(reply)};
}

api_reply replay_controllers(driver &node, wait_time wait) {
  const auto deadline = action_clock::now() + wait;
  cerrno rc = 0;
  {
    const std::unique_lock turn(node.lifecycle(), std::max<wait_time>(wait, wait_time(1000)));
    if (!turn) return refuse(409, "a creation or deletion of ports is under way");
    rc = lum_replay_controllers();
  }
  const auto is_done = [&node] {
    const replay_state state = look_at_replay(node);
    return state.confirmed == state.controllers;
  };
  if (CERR_IS_OK(rc)) wait_for_answers(node, deadline, is_done);
  const replay_state state = look_at_replay(node);
  json reply = {{"result", result_of(rc)},
                {"controllers", state.controllers},
                {"confirmed", state.confirmed}};
  conclude(reply, CERR_IS_OK(rc) && state.confirmed == state.controllers,
           CERR_IS_OK(rc) ? fmt::format("the interface manager has confirmed {} of {} controllers",
                                        state.confirmed, state.controllers)
                          : fmt::format("the replay was refused: {} ({})", cerr_strerror(rc), rc));
  return {200, std::move(reply)};
}

}  // namespace lumd
