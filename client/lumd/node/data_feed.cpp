#include "node/data_feed.h"

#include "lum.h"
#include "node/port_data.h"

namespace lumd {
namespace {

using lum_linux::module_status;

// A visit of the polling thread makes two transfers, one right after the other, and then stores
// what it has read.
constexpr std::chrono::milliseconds settled(300);

bool was_just_polled(const module_status &module, std::chrono::steady_clock::time_point fed) {
  const auto &transfers = module.statistics;
  return transfers.last_success != fed && transfers.last_success >= transfers.last_failure &&
         std::chrono::steady_clock::now() - transfers.last_success > settled;
}

}  // namespace

void data_feed::feed_polled() {
  for (const auto &[rsip, port] : copy_ports()) {
    const auto module = modules_.status(rsip);
    if (!module || !cages_.has_readings(rsip) || is_going(port)) continue;
    if (!was_just_polled(*module, fed_[rsip])) continue;
    bool complete = true;
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      complete = controller.created != 0 &&
                 CERR_IS_OK(lum_update_pm_ptah_data(controller.ifhandle)) && complete;
    }
    if (complete) fed_[rsip] = module->statistics.last_success;
  }
}

}  // namespace lumd
