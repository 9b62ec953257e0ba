#include "node/cages.h"

#include "lum.h"
#include "node/log.h"

namespace lumd {
namespace {

using lum_linux::module_status;

constexpr uint64_t transfers_of_a_poll = 2;

uint64_t good_transfers(const module_status &module) {
  return module.statistics.attempted - module.statistics.failed;
}

// The visit of a module ends with its first failed transfer, and stores nothing then.
bool was_polled(const module_status &module, uint64_t before) {
  return good_transfers(module) >= before + transfers_of_a_poll &&
         module.statistics.last_success >= module.statistics.last_failure;
}

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

void cage_watch::begin(uint32_t rsip) {
  const auto module = modules_.last_status(rsip);
  if (!module) return;
  std::lock_guard lock(mutex_);
  cage &now = cages_[rsip];
  now.transfers_before_polling = good_transfers(*module);
  now.polled = false;
  now.insertion = module->insertion;
}

void cage_watch::look() {
  for (const lum_linux::port_description *port : node_.ports()) look_at(*port);
}

bool cage_watch::has_readings(uint32_t rsip) const {
  const cage now = seen(rsip);
  return now.present && now.polled;
}

cage_watch::cage cage_watch::seen(uint32_t rsip) const {
  std::lock_guard lock(mutex_);
  const auto found = cages_.find(rsip);
  return found == cages_.end() ? cage() : found->second;
}

void cage_watch::look_at(const lum_linux::port_description &port) {
  const uint32_t rsip = port.rsip;
  const auto module = modules_.status(rsip);
  const auto known = copy_port(rsip);
  if (!module || !known || !is_created(*known) || is_going(*known)) return;

  const cage before = seen(rsip);
  const bool is_another =
      module->present && before.insertion != 0 && module->insertion != before.insertion;
  tell_operator(port.name, before.present, module->present, is_another);

  // The library takes a cage for filled each time its controllers are confirmed, so what it
  // believes is compared, not only what has changed in the cage.
  const bool believed = known->data.inserted != 0;
  if (believed && (!module->present || is_another)) lum_update_vendor_info(rsip, 0);
  const bool has_come = module->present && (!believed || is_another);
  if (has_come) {
    lum_update_vendor_info(rsip, 1);
    begin(rsip);
  }

  std::lock_guard lock(mutex_);
  cage &now = cages_[rsip];
  now.present = module->present;
  if (module->present) now.insertion = module->insertion;
  now.polled = module->present && !has_come &&
               (now.polled || was_polled(*module, now.transfers_before_polling));
}

}  // namespace lumd
