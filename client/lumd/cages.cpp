#include "cages.h"

#include "driver.h"
#include "log.h"
#include "lum.h"
#include "lum_linux/modules.h"
#include "port_data.h"

namespace lumd {
namespace {

enum class change { none, removed, inserted, replaced };

change what_changed(const lum_port_data &port, const lum_linux::module_status &cage,
                    uint64_t known_insertion) {
  const bool known = port.inserted != 0;
  if (known && !cage.present) return change::removed;
  if (!known && cage.present) return change::inserted;
  if (cage.present && known_insertion != 0 && cage.insertion != known_insertion) {
    return change::replaced;
  }
  return change::none;
}

void tell(uint32_t rsip, const std::string &name, change what) {
  switch (what) {
    case change::none:
      return;
    case change::removed:
      say("port {}: no module in the cage", name);
      lum_update_vendor_info(rsip, 0);
      return;
    case change::inserted:
      lum_update_vendor_info(rsip, 1);
      say("port {}: a module is in the cage", name);
      return;
    case change::replaced:
      lum_update_vendor_info(rsip, 0);
      lum_update_vendor_info(rsip, 1);
      say("port {}: another module is in the cage", name);
      return;
  }
}

}  // namespace

void watch_cages(driver &node) {
  // Which module was there at the last look. This thread's alone.
  static std::map<uint32_t, uint64_t> known_insertions;

  for (const lum_linux::port_description *port : node.node().ports()) {
    const auto cage = node.platform().modules().status(port->rsip);
    if (!cage) continue;
    uint64_t &known_insertion = known_insertions[port->rsip];
    const auto copy = copy_port(port->rsip);
    if (copy && !is_going(*copy)) {
      tell(port->rsip, port->name, what_changed(copy->data, *cage, known_insertion));
    }
    known_insertion = cage->present ? cage->insertion : 0;
  }
}

}  // namespace lumd
