#include "data_feed.h"

#include "lum.h"
#include "port_data.h"

namespace lumd {

void feed_monitoring(const cage_watch &cages) {
  for (const auto &[rsip, port] : copy_ports()) {
    if (!cages.has_readings(rsip) || is_going(port)) continue;
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      if (controller.created != 0) lum_update_pm_ptah_data(controller.ifhandle);
    }
  }
}

}  // namespace lumd
