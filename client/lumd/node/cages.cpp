#include "node/cages.h"

#include <chrono>

#include "lum.h"
#include "node/log.h"

namespace lumd {
namespace {

using clock = std::chrono::steady_clock;

void tell_operator(const std::string &name, bool was_present, bool is_present, bool is_another) {
  if (was_present && !is_present) {
    say("port {}: no module in the cage", name);
  } else if (!was_present && is_present) {
    say("port {}: a module is in the cage", name);
  } else if (is_another) {
    say("port {}: another module is in the cage", name);
  }
}

}  // namespace

cage_watch::cage_watch(const lum_linux::node_description &node, lum_linux::modules &modules)
    : node_(node), modules_(modules), readers_("lumd-identity", {node.ports().size() + 1, 1}) {
  for (const lum_linux::port_description *port : node.ports()) begin(port->rsip);
}

void cage_watch::begin(uint32_t rsip) {
  const auto module = modules_.status(rsip);
  std::lock_guard lock(mutex_);
  cage &now = cages_[rsip];
  now.begun = clock::now();
  if (module) now.insertion = module->insertion;
}

void cage_watch::renew(uint32_t rsip) {
  std::lock_guard lock(mutex_);
  cages_[rsip].begun = clock::now();
}

void cage_watch::forget_all() {
  std::lock_guard lock(mutex_);
  for (auto &[rsip, one] : cages_) one.begun = clock::time_point::max();
}

void cage_watch::renew_all() {
  std::lock_guard lock(mutex_);
  for (auto &[rsip, one] : cages_) one.begun = clock::now();
}

void cage_watch::look() {
  modules_.look();
  for (const lum_linux::port_description *port : node_.ports()) look_at(*port);
}

cage cage_watch::seen(uint32_t rsip) const {
  std::lock_guard lock(mutex_);
  const auto found = cages_.find(rsip);
  cage result = found == cages_.end() ? cage() : found->second;
  result.being_read = readers_.in_lane(rsip) > 0;
  return result;
}

void cage_watch::look_at(const lum_linux::port_description &port) {
  const uint32_t rsip = port.rsip;
  const auto module = modules_.status(rsip);
  const auto known = copy_port(rsip);
  if (module) tell_way(port, module->way);
  if (!module || !module->is_known() || !known || !is_created(*known) || is_going(*known)) return;
  if (readers_.in_lane(rsip) > 0) return;

  const cage before = seen(rsip);
  const bool is_another = module->present && module->insertion != before.insertion;
  if (module->place_code == 0) {
    tell_operator(port.name, before.present, module->present, is_another);
  }

  // The library takes a cage for filled each time its controllers are confirmed, so what it
  // believes is compared, not only what has changed in the cage.
  const bool believed = known->data.inserted != 0;
  const bool has_gone = believed && (!module->present || is_another);
  const bool has_come = module->present && (!believed || is_another);
  if (has_gone || has_come) tell_library(rsip, has_gone, has_come);

  std::lock_guard lock(mutex_);
  cage &now = cages_[rsip];
  if (has_gone || has_come) now.begun = clock::now();
  now.present = module->present;
}

void cage_watch::tell_way(const lum_linux::port_description &port, const std::string &way) {
  if (way.empty() || ways_[port.rsip] == way) return;
  ways_[port.rsip] = way;
  say("port {}: {} is read by {}", port.name, port.module.i2c_bus.native(), way);
}

// What cannot be told now is told after the next look: the library's belief is compared again.
void cage_watch::tell_library(uint32_t rsip, bool has_gone, bool has_come) {
  readers_.post(rsip, [this, rsip, has_gone, has_come] {
    if (has_gone) lum_update_vendor_info(rsip, 0);
    if (!has_come) return;
    begin(rsip);
    lum_update_vendor_info(rsip, 1);
    renew(rsip);
  });
}

}  // namespace lumd
