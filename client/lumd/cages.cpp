#include "cages.h"

#include "driver.h"
#include "log.h"
#include "lum.h"
#include "lum_linux/modules.h"
#include "port_data.h"

namespace lumd {
namespace {

using lum_linux::module_status;

// What was seen of a cage at the last look.
struct last_look {
  bool present = true;
  uint64_t insertion = 0;
};

// The library takes a cage for filled when its controllers are confirmed, so what it believes is
// compared each time, not only what has changed in the cage.
void tell_library(uint32_t rsip, const lum_port_data &port, const module_status &cage,
                  const last_look &before) {
  const bool is_another =
      cage.present && before.insertion != 0 && cage.insertion != before.insertion;
  if (port.inserted != 0 && (!cage.present || is_another)) lum_update_vendor_info(rsip, 0);
  if (cage.present && (port.inserted == 0 || is_another)) lum_update_vendor_info(rsip, 1);
}

void tell_operator(const std::string &name, const module_status &cage, const last_look &before) {
  if (!cage.present && before.present) {
    say("port {}: no module in the cage", name);
  } else if (cage.present && !before.present) {
    say("port {}: a module is in the cage", name);
  } else if (cage.present && before.insertion != 0 && cage.insertion != before.insertion) {
    say("port {}: another module is in the cage", name);
  }
}

}  // namespace

void watch_cages(driver &node) {
  static std::map<uint32_t, last_look> looks;  // this thread's alone

  for (const lum_linux::port_description *port : node.node().ports()) {
    const auto cage = node.platform().modules().status(port->rsip);
    const auto copy = copy_port(port->rsip);
    if (!cage || !copy || !is_created(*copy) || is_going(*copy)) continue;
    last_look &before = looks[port->rsip];
    tell_operator(port->name, *cage, before);
    tell_library(port->rsip, copy->data, *cage, before);
    before = {cage->present, cage->present ? cage->insertion : 0};
  }
}

}  // namespace lumd
