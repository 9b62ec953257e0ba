#include "node/port_snapshot.h"

#include <fmt/format.h>

#include <algorithm>

#include "node/driver.h"
#include "node/polling_halt.h"

namespace lumd {
namespace {

using lum_linux::module_status;
using lum_linux::port_description;
using clock = std::chrono::steady_clock;

constexpr std::chrono::seconds stale_after(15);  // three of polling's pauses

// What was polled, as long as nothing has cleared it, and of which module.
struct valid_poll {
  cage seen;
  std::optional<module_poll> poll;
};

valid_poll valid_poll_of(driver &node, uint32_t rsip) {
  const cage seen = node.cages().seen(rsip);
  auto poll = node.polling().last_poll(rsip);
  if (poll && poll->started <= seen.begun) poll.reset();
  return {seen, poll};
}

// Whatever was cleared while the copy was made, was cleared after `before` or makes `after`
// another.
std::optional<module_poll> poll_in_copy(const valid_poll &before, const valid_poll &after) {
  return before.seen.begun == after.seen.begun ? before.poll : std::nullopt;
}

bool last_transfer_failed(const module_status &module) {
  return module.statistics.failed > 0 &&
         module.statistics.last_failure > module.statistics.last_success;
}

// A pass over all modules may take its time; three of them are more than that.
bool is_stale(driver &node, clock::duration unpolled) {
  return unpolled > stale_after + 3 * node.polling().last_pass();
}

// How long the module that is there has not been polled.
clock::duration unpolled_for(const port_snapshot &at) {
  const auto now = clock::now();
  return now - std::min(at.polled ? at.polled->ended : at.begun, now);
}

port_state judge(driver &node, const port_description &port, const cage &seen, bool is_being_read,
                 const port_snapshot &at) {
  if (!at.copy) return port_state::absent;
  if (is_going(*at.copy)) return port_state::going;
  if (!is_created(*at.copy)) return port_state::coming_up;
  if (at.module.busy_for > hung_after || at.module.place_code != 0) return port_state::failing;
  if (at.module.is_known() && !at.module.present) return port_state::empty;
  const bool is_another = at.module.is_known() && at.module.insertion != seen.insertion;
  if (is_being_read || is_another) return port_state::coming_up;
  if (at.copy->data.inserted == 0) {
    return at.module.is_known() ? port_state::empty : port_state::coming_up;
  }
  if (node.platform().fw_upgrade(port.rsip) != 0) return port_state::upgrading;
  if (last_transfer_failed(at.module)) return port_state::failing;
  if (node.node().rack != 0) return port_state::stale;
  return is_stale(node, unpolled_for(at)) ? port_state::stale : port_state::up;
}

std::string why_failing(const module_status &module) {
  if (module.busy_for > hung_after) {
    return fmt::format("a transfer has not ended for {:.0f} s",
                       std::chrono::duration<double>(module.busy_for).count());
  }
  if (module.place_code != 0) return why_unreachable(module);
  if (module.reset && module.reset->is_on == true) return "the module is held in reset";
  return fmt::format("the module's last transfer failed: {}", why_last_failure(module));
}

std::string why_stale(driver &node, const port_snapshot &at) {
  const auto halt = halt_of(node);
  return fmt::format("the module has not been polled for {} s: {}",
                     std::chrono::duration_cast<std::chrono::seconds>(unpolled_for(at)).count(),
                     halt ? halt->reason : "polling has not come to it");
}

std::string why_going(const module_status &module) {
  if (module.busy_for > hung_after)
    return "its module holds up the deletion: " + why_failing(module);
  return "the interface manager has not confirmed the deletion yet";
}

std::string why_unconfirmed(driver &node) {
  return node.platform().im().statistics().pending > 0
             ? "the interface manager has not confirmed both controllers yet"
             : "the interface manager has not confirmed both controllers, and has no request left "
               "to answer; a replay asks again";
}

std::string reason_for(driver &node, const port_snapshot &at) {
  switch (at.state) {
    case port_state::absent:
      return "the port has not been created, or has been deleted";
    case port_state::going:
      return why_going(at.module);
    case port_state::coming_up:
      if (!is_created(*at.copy)) return why_unconfirmed(node);
      return at.module.is_known() ? "the identity of its module is being read"
                                  : "its cage has not been looked into yet";
    case port_state::empty:
      return "there is no module in the cage";
    case port_state::upgrading:
      return "the module's firmware is being upgraded";
    case port_state::failing:
      return why_failing(at.module);
    case port_state::stale:
      return why_stale(node, at);
    case port_state::up:
      return "";
  }
  return "";
}

port_snapshot snapshot(driver &node, const port_description &port, const valid_poll &before,
                       const std::optional<port_copy> &copy) {
  port_snapshot at;
  at.copy = copy;
  at.module = node.platform().modules().status(port.rsip).value_or(module_status());
  const cage seen = node.cages().seen(port.rsip);
  // The copy is of one module when no other has come, or was being read, while it was made.
  const bool is_being_read =
      before.seen.being_read || seen.being_read || before.seen.insertion != seen.insertion;
  const bool is_the_one_read =
      !is_being_read && at.module.present && at.module.insertion == seen.insertion;
  at.is_identified = !seen.incomplete;
  at.begun = seen.begun;
  at.is_filled =
      at.copy && at.copy->data.inserted != 0 && (is_the_one_read || !at.module.is_known());
  if (at.is_filled) at.polled = poll_in_copy(before, valid_poll_of(node, port.rsip));
  at.state = judge(node, port, seen, is_being_read, at);
  at.reason = reason_for(node, at);
  at.since = node.states().seen(port.rsip, at.state);
  return at;
}

}  // namespace

std::string why_unreachable(const module_status &module) {
  if (module.place_code == ENOTTY) return fmt::format("{} is no I2C bus", module.place);
  return fmt::format("{} cannot be reached: {}", module.place, cerr_strerror(module.place_code));
}

std::string why_last_failure(const module_status &module) {
  const std::string code = cerr_strerror(module.statistics.last_error);
  const std::string &reason = module.statistics.last_reason;
  return reason.empty() ? code : fmt::format("{} ({})", reason, code);
}

bool knows_presence(const module_status &module) {
  return module.is_known() && module.place_code == 0;
}

std::optional<module_poll> poll_of(driver &node, uint32_t rsip) {
  return valid_poll_of(node, rsip).poll;
}

port_snapshot look_at(driver &node, const port_description &port) {
  const valid_poll before = valid_poll_of(node, port.rsip);
  return snapshot(node, port, before, copy_port(port.rsip));
}

std::map<uint32_t, port_snapshot> look_at_ports(driver &node) {
  std::map<uint32_t, valid_poll> before;
  const auto ports = node.node().ports();
  for (const port_description *port : ports) before[port->rsip] = valid_poll_of(node, port->rsip);
  auto copies = copy_ports();
  std::map<uint32_t, port_snapshot> all;
  for (const port_description *port : ports) {
    const auto found = copies.find(port->rsip);
    all[port->rsip] = snapshot(node, *port, before[port->rsip],
                               found == copies.end() ? std::nullopt : std::optional(found->second));
  }
  return all;
}

}  // namespace lumd
