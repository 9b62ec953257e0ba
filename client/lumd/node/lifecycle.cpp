#include "node/lifecycle.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <map>
#include <set>

#include "lum.h"
#include "lum_linux/checkpoints.h"
#include "node/driver.h"
#include "node/im_request.h"
#include "node/log.h"
#include "node/port_data.h"

namespace lumd {
namespace {

using lum_linux::instance_description;
using lum_linux::port_description;
using std::chrono::milliseconds;
using clock = std::chrono::steady_clock;

constexpr milliseconds shortest_turn(1000);  // for a turn at the lifecycle, however short the wait
constexpr milliseconds look_again(20);

struct place {
  uint32_t slot = 0;
  const instance_description *instance = nullptr;
};

// What a request names: empty, with the refusal in `refused`, when the node does not have it.
std::vector<place> find_instances(driver &node, uint32_t slot, std::optional<uint32_t> instance,
                                  refusal &refused) {
  std::vector<place> found;
  const auto &slots = node.node().slots;
  const auto described =
      std::find_if(slots.begin(), slots.end(), [&](const auto &s) { return s.number == slot; });
  if (described == slots.end()) {
    refused = {refusal_kind::unknown, fmt::format("the node has no slot {}", slot)};
    return found;
  }
  for (const instance_description &candidate : described->instances) {
    if (!instance || candidate.number == *instance) found.push_back({slot, &candidate});
  }
  if (found.empty()) {
    refused = {refusal_kind::unknown,
               instance ? fmt::format("slot {} has no instance {}", slot, *instance)
                        : fmt::format("slot {} has no instances", slot)};
  }
  return found;
}

port_list ports_of(const std::vector<place> &places) {
  port_list ports;
  for (const place &place : places) {
    for (const port_description &port : place.instance->ports) ports.push_back(&port);
  }
  return ports;
}

std::string names_of(const port_list &ports) {
  constexpr std::size_t most = 4;
  std::string names;
  for (std::size_t i = 0; i < std::min(most, ports.size()); ++i) {
    names += (names.empty() ? "" : ", ") + ports[i]->name;
  }
  return ports.size() > most ? fmt::format("{} and {} more", names, ports.size() - most) : names;
}

refusal not_now(const std::string &reason) { return {refusal_kind::conflict, reason}; }

std::vector<port_result> results_of(driver &node, const port_list &ports) {
  std::vector<port_result> results;
  for (const port_description *port : ports) {
    const port_snapshot at = look_at(node, *port);
    port_result one = {port, at.state, {}};
    for (std::size_t s = 0; at.copy && s < LUM_SUB_PORTS; ++s) {
      one.ifhandles.push_back(at.copy->data.sub_port[s].ifhandle);
    }
    results.push_back(std::move(one));
  }
  return results;
}

// Of a creation or deletion that has been asked for.
lifecycle_report report_on(driver &node, cerrno rc, const port_list &ports,
                           const port_list &unconfirmed, const char *what,
                           const std::string &problem) {
  lifecycle_report report;
  report.rc = rc;
  report.ports = results_of(node, ports);
  report.missing = problem;
  if (problem.empty() && !unconfirmed.empty()) {
    report.missing = fmt::format("the interface manager has not confirmed the {} of {}", what,
                                 names_of(unconfirmed));
  }
  return report;
}

slot_turns::turn turn_at(driver &node, const std::set<uint32_t> &slots, wait_time wait) {
  return node.turns().take(slots, std::max<milliseconds>(wait, shortest_turn));
}

refusal no_turn() { return not_now("another creation or deletion of ports is under way"); }

// What a deletion has left in the store; nothing when all is gone.
std::string left_in_store(const port_list &ports) {
  std::string left;
  const auto store = lum_linux::checkpoints_status();
  for (const auto &one : store.troubled) {
    if (one.trouble != lum_linux::record_trouble::undeleted) continue;
    for (const port_description *port : ports) {
      if (port->rsip != one.key) continue;
      left += fmt::format("{}the settings of port {} are still in the store {}: {}",
                          left.empty() ? "" : "; ", port->name, store.file.native(), one.reason);
    }
  }
  return left;
}

uint32_t slot_of(const port_description &port) { return port.rsip >> 16 & 0xFF; }

// What is asked for once more needs every slot: see reason_against_deletion.
std::set<uint32_t> slots_for_deletion(driver &node, const port_list &ports) {
  std::set<uint32_t> slots;
  bool repeated = false;
  for (const port_description *port : ports) {
    slots.insert(slot_of(*port));
    const auto copy = copy_port(port->rsip);
    repeated = repeated || (copy && is_going(*copy));
  }
  if (!repeated) return slots;
  for (const auto &slot : node.node().slots) slots.insert(slot.number);
  return slots;
}

bool is_created_now(uint32_t rsip) {
  const auto copy = copy_port(rsip);
  return copy && is_created(*copy);
}

bool is_gone_now(driver &node, uint32_t rsip) {
  return !copy_port(rsip) && !node.platform().has_controllers(rsip);
}

template <typename Condition>
port_list those_not(const port_list &ports, Condition condition) {
  port_list rest;
  std::copy_if(ports.begin(), ports.end(), std::back_inserter(rest),
               [&](const port_description *port) { return !condition(port->rsip); });
  return rest;
}

cerrno open_instance(driver &node, uint32_t slot, const instance_description &instance) {
  const lum_slot_props props = {1, instance.capacity};
  const cerrno rc = lum_plat_init(node.node().rack, slot, instance.number, &props);
  if (!CERR_IS_OK(rc)) {
    say("slot {} instance {} was not opened: {}", slot, instance.number, cerr_strerror(rc));
  }
  return rc;
}

// One batch for each instance. Returns the first failure.
cerrno ask_for_deletion(driver &node, const port_list &ports) {
  std::map<uint32_t, std::vector<uint32_t>> batches;  // by rsip without the port
  for (const port_description *port : ports) {
    batches[port->rsip & ~0xFFu].push_back(port->number);
  }
  cerrno first = 0;
  for (const auto &[position, numbers] : batches) {
    const uint32_t slot = position >> 16 & 0xFF;
    const uint32_t instance = position >> 8 & 0xFF;
    const cerrno rc = lum_delete_ports(node.node().rack, slot, instance,
                                       static_cast<uint32_t>(numbers.size()), numbers.data());
    if (!CERR_IS_OK(rc)) {
      say("the ports of slot {} instance {} were not deleted: {}", slot, instance,
          cerr_strerror(rc));
      if (CERR_IS_OK(first)) first = rc;
    }
  }
  return first;
}

bool has_every_handle(const port_copy &port) {
  return port.data.sub_port[0].ifhandle != 0 && port.data.sub_port[1].ifhandle != 0;
}

// The library finds controllers to delete by their handles. A port without one has the handle 0,
// and so has, to the library, a listed port that goes while it is asked: when a deletion that was
// asked for before is answered. So the first such port of the node would lose its controllers.
std::string reason_against_deletion(driver &node, const port_list &ports) {
  const auto copies = copy_ports();
  const port_description *repeated = nullptr;
  for (const port_description *port : ports) {
    const auto copy = copies.find(port->rsip);
    if (copy == copies.end()) continue;
    if (!has_every_handle(copy->second)) {
      return fmt::format("the controllers of port {} have no handles yet: wait for them, or replay",
                         port->name);
    }
    if (is_going(copy->second)) repeated = port;
  }
  if (repeated == nullptr) return {};
  for (const port_description *port : node.node().ports()) {
    const auto copy = copies.find(port->rsip);
    if (copy == copies.end() || has_every_handle(copy->second)) continue;
    return fmt::format(
        "the deletion of port {} cannot be repeated now: the controllers of port {} have no "
        "handles yet: wait for them, or replay",
        repeated->name, port->name);
  }
  return {};
}

outcome<lifecycle_report> delete_existing(driver &node, const port_list &ports, wait_time wait) {
  auto mine = turn_at(node, slots_for_deletion(node, ports), wait);
  if (!mine) return no_turn();
  const auto deadline = clock::now() + wait;
  if (const auto reason = reason_against_deletion(node, ports); !reason.empty()) {
    return not_now(reason);
  }
  im_request request(node, "deletion");
  const cerrno rc = ask_for_deletion(node, ports);
  request.sent(rc);
  mine.end();
  const auto is_gone = [&node](uint32_t rsip) { return is_gone_now(node, rsip); };
  wait_for_answers(node, deadline, [&] {
    return request.is_settled() && (!request.is_good() || those_not(ports, is_gone).empty());
  });
  lifecycle_report report =
      report_on(node, rc, ports, those_not(ports, is_gone), "deletion", request.problem(wait));
  report.pending = request.is_pending();
  if (report.missing.empty()) report.missing = left_in_store(ports);
  return report;
}

// The ports, each once, when all of them exist.
outcome<port_list> existing(const port_list &ports) {
  port_list wanted;
  for (const port_description *port : ports) {
    if (!copy_port(port->rsip)) {
      return not_now(fmt::format("port {} does not exist", port->name));
    }
    if (std::find(wanted.begin(), wanted.end(), port) == wanted.end()) wanted.push_back(port);
  }
  return wanted;
}

// What exists at the places, all in one slot, when anything does.
outcome<port_list> existing_at(const std::vector<place> &places, uint32_t slot) {
  port_list found = those_not(ports_of(places), [](uint32_t rsip) { return !copy_port(rsip); });
  if (found.empty()) return not_now(fmt::format("slot {} has no ports", slot));
  return found;
}

outcome<deletion_plan> plan_of(driver &node, const outcome<port_list> &ports) {
  if (!ports) return ports.refused();
  if (const auto reason = reason_against_deletion(node, *ports); !reason.empty()) {
    return not_now(reason);
  }
  deletion_plan plan;
  plan.ports = *ports;
  return plan;
}

void close_empty(driver &node, const std::vector<place> &places) {
  for (const place &place : places) {
    const auto mine = turn_at(node, {place.slot}, shortest_turn);
    if (!mine) return;
    if (!those_not(ports_of({place}), [](uint32_t rsip) { return !copy_port(rsip); }).empty()) {
      continue;
    }
    lum_plat_deinit(node.node().rack, place.slot, place.instance->number);
  }
}

// What it is told for is not undone by a lack of memory for the telling.
void tell_of_creation(uint32_t slot, uint32_t instance, cerrno rc) noexcept {
  try {
    say("the ports of slot {} instance {} were not created: {}", slot, instance, cerr_strerror(rc));
  } catch (const std::exception &) {
    // The API shows that they are not there.
  }
}

}  // namespace

std::vector<lum_port_props> props_of(const port_list &ports) {
  std::vector<lum_port_props> all;
  for (const port_description *port : ports) {
    lum_port_props props = {};
    props.rsip = port->rsip;
    props.port_index = port->number;
    props.port_handle = port->handle;
    all.push_back(props);
  }
  return all;
}

cerrno open_when_empty(driver &node, uint32_t slot, const instance_description &instance) {
  const bool is_empty =
      std::none_of(instance.ports.begin(), instance.ports.end(),
                   [](const port_description &port) { return copy_port(port.rsip).has_value(); });
  return is_empty ? open_instance(node, slot, instance) : 0;
}

cerrno create_listed(driver &node, uint32_t slot, uint32_t instance,
                     const std::vector<lum_port_props> &ports) {
  std::vector<lum_port_props> missing = ports;
  std::erase_if(missing, [](const lum_port_props &one) { return copy_port(one.rsip).has_value(); });
  if (missing.empty()) return 0;
  for (const lum_port_props &props : missing) node.cages().begin(props.rsip);
  const cerrno rc = lum_create_ports(static_cast<uint32_t>(missing.size()), missing.data());
  for (const lum_port_props &props : missing) node.cages().renew(props.rsip);
  if (!CERR_IS_OK(rc)) tell_of_creation(slot, instance, rc);
  return rc;
}

outcome<lifecycle_report> create_ports(driver &node, uint32_t slot,
                                       std::optional<uint32_t> instance, wait_time wait) {
  refusal refused;
  const auto places = find_instances(node, slot, instance, refused);
  if (places.empty()) return refused;

  auto mine = turn_at(node, {slot}, wait);
  if (!mine) return no_turn();
  const auto deadline = clock::now() + wait;
  port_list missing;
  for (const port_description *port : ports_of(places)) {
    const auto copy = copy_port(port->rsip);
    if (copy && is_going(*copy)) {
      return not_now(fmt::format("port {} is still being deleted", port->name));
    }
    if (!copy) missing.push_back(port);
  }
  if (missing.empty()) return not_now(fmt::format("all ports of slot {} exist", slot));
  im_request request(node, "creation");
  cerrno rc = 0;
  for (const place &place : places) {
    cerrno one = open_when_empty(node, place.slot, *place.instance);
    if (CERR_IS_OK(one)) {
      one = create_listed(node, place.slot, place.instance->number, props_of(ports_of({place})));
    }
    if (CERR_IS_OK(rc)) rc = one;
  }
  request.sent(rc);
  mine.end();
  wait_for_answers(node, deadline, [&] {
    return request.is_settled() &&
           (!request.is_good() || those_not(missing, is_created_now).empty());
  });
  lifecycle_report report = report_on(node, rc, missing, those_not(missing, is_created_now),
                                      "creation", request.problem(wait));
  report.pending = request.is_pending();
  return report;
}

outcome<lifecycle_report> delete_ports(driver &node, const port_list &ports, wait_time wait) {
  const auto wanted = existing(ports);
  if (!wanted) return wanted.refused();
  return delete_existing(node, *wanted, wait);
}

outcome<lifecycle_report> delete_slot(driver &node, uint32_t slot, std::optional<uint32_t> instance,
                                      wait_time wait) {
  refusal refused;
  const auto places = find_instances(node, slot, instance, refused);
  if (places.empty()) return refused;
  const auto wanted = existing_at(places, slot);
  if (!wanted) return wanted.refused();
  auto deleted = delete_existing(node, *wanted, wait);
  if (deleted) close_empty(node, places);
  return deleted;
}

outcome<deletion_plan> plan_deletion(driver &node, const port_list &ports) {
  return plan_of(node, existing(ports));
}

outcome<deletion_plan> plan_deletion(driver &node, uint32_t slot,
                                     std::optional<uint32_t> instance) {
  refusal refused;
  const auto places = find_instances(node, slot, instance, refused);
  if (places.empty()) return refused;
  return plan_of(node, existing_at(places, slot));
}

bool wait_for_answers(driver &node, std::chrono::steady_clock::time_point deadline,
                      const std::function<bool()> &holds) {
  while (!holds()) {
    if (clock::now() >= deadline) return false;
    if (node.platform().im().wait_idle(look_again)) return holds();
  }
  return true;
}

}  // namespace lumd
