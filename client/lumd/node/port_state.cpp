#include "node/port_state.h"

#include <fmt/format.h>

#include "node/driver.h"

namespace lumd {
namespace {

using lum_linux::module_status;
using lum_linux::port_description;

using clock = std::chrono::steady_clock;

constexpr std::chrono::seconds stale_after(15);  // three of polling's pauses

clock::duration age_of_readings(const module_status &module) {
  return clock::now() - module.statistics.last_success;
}

bool last_transfer_failed(const module_status &module) {
  return module.statistics.failed > 0 &&
         module.statistics.last_failure > module.statistics.last_success;
}

module_status module_of(driver &node, const port_description &port) {
  return node.platform().modules().status(port.rsip).value_or(module_status());
}

// A pass over all modules may take its time; three of them are more than that.
bool is_stale(driver &node, const port_description &port, const module_status &module) {
  if (!node.cages().has_readings(port.rsip)) return false;
  const auto cycle = node.polling().report();
  const auto pass = cycle.last ? cycle.last->ended - cycle.last->started : clock::duration();
  return age_of_readings(module) > stale_after + 3 * pass;
}

std::string why_stale(driver &node, const module_status &module) {
  const auto age = std::chrono::duration_cast<std::chrono::seconds>(age_of_readings(module));
  const polling_report polling = node.polling().report();
  return fmt::format("the module has not been polled for {} s: {}", age.count(),
                     polling.paused    ? "polling is switched off"
                     : polling.running ? "another module holds polling up"
                                       : "polling stands still");
}

port_state judge(driver &node, const port_description &port, const port_copy *copy,
                 const module_status &module) {
  if (copy == nullptr) return port_state::absent;
  if (is_going(*copy)) return port_state::going;
  if (!is_created(*copy)) return port_state::coming_up;
  if (copy->data.inserted == 0) return port_state::empty;
  if (node.platform().fw_upgrade(port.rsip) != 0) return port_state::upgrading;
  if (module.busy_for > hung_after || last_transfer_failed(module)) return port_state::failing;
  return is_stale(node, port, module) ? port_state::stale : port_state::up;
}

std::string reason_for(driver &node, port_state state, const module_status &module) {
  switch (state) {
    case port_state::absent:
      return "the port has not been created, or has been deleted";
    case port_state::going:
      return "the interface manager has not confirmed the deletion yet";
    case port_state::coming_up:
      return "the interface manager has not confirmed both controllers yet";
    case port_state::empty:
      return "there is no module in the cage";
    case port_state::upgrading:
      return "the module's firmware is being upgraded";
    case port_state::failing:
      if (module.busy_for > hung_after) {
        return fmt::format("a transfer has not ended for {:.0f} s",
                           std::chrono::duration<double>(module.busy_for).count());
      }
      return fmt::format("the module's last transfer failed: {}",
                         cerr_strerror(module.statistics.last_error));
    case port_state::stale:
      return why_stale(node, module);
    case port_state::up:
      return "";
  }
  return "";
}

}  // namespace

port_condition condition_of(driver &node, const port_description &port, const port_copy *copy) {
  module_status module = module_of(node, port);
  const port_state state = judge(node, port, copy, module);
  return {state, reason_for(node, state, module), std::move(module)};
}

port_state state_of(driver &node, const port_description &port, const port_copy *copy) {
  return judge(node, port, copy, module_of(node, port));
}

}  // namespace lumd
