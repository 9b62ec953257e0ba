#include "node/data_feed.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "lum.h"
#include "lum_linux/performance.h"
#include "node/driver.h"
#include "node/port_snapshot.h"

namespace lumd {
namespace {

decltype(reading_sample::readings) readings_of(const port_copy &port) {
  static_assert(LUM_SUB_PORTS == sub_ports_of_a_sample);
  decltype(reading_sample::readings) all;
  for (std::size_t i = 0; i < all.size(); ++i) {
    std::copy_n(port.data.dom[i].readings, all[i].size(), all[i].begin());
  }
  return all;
}

}  // namespace

void data_feed::feed_polled() {
  const std::unique_lock held(feeding_, std::try_to_lock);
  if (!held) return;
  const uint64_t polls = node_.polling().polls();
  if (fed_up_to_ == polls) return;
  const polling_report before = node_.polling().report();
  const auto ports = copy_ports();
  const polling_report after = node_.polling().report();
  // Nothing was being stored while the copies were made.
  const bool is_at_rest = !before.running && !after.running && before.cycles == after.cycles;
  forget_all_but(ports);
  for (const auto &[rsip, port] : ports) {
    if (is_going(port) || port.data.inserted == 0) continue;
    const auto poll = poll_of(node_, rsip);
    if (!poll) continue;
    if (is_at_rest) node_.history().add(rsip, poll->ended, readings_of(port));
    for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) {
      const lum_sub_port_intf &controller = port.data.sub_port[i];
      if (controller.created == 0) continue;
      const auto last = fed(controller.ifhandle);
      if (!last || last->ended != poll->ended) hand_on(port, i, *poll);
    }
  }
  if (is_at_rest) fed_up_to_ = polls;
}

// Handles are never given out twice.
void data_feed::forget_all_but(const std::map<uint32_t, port_copy> &ports) {
  std::set<uint32_t> handles;
  for (const auto &[rsip, port] : ports) {
    for (const lum_sub_port_intf &controller : port.data.sub_port) {
      handles.insert(controller.ifhandle);
    }
  }
  const std::lock_guard lock(mutex_);
  std::erase_if(fed_, [&](const auto &one) { return !handles.contains(one.first); });
}

std::optional<fed_poll> data_feed::fed(uint32_t ifhandle) const {
  const std::lock_guard lock(mutex_);
  const auto found = fed_.find(ifhandle);
  return found == fed_.end() ? std::nullopt : std::optional(found->second);
}

cerrno data_feed::hand_on(const port_copy &port, std::size_t sub_port, const module_poll &poll,
                          bool for_test) {
  const uint32_t ifhandle = port.data.sub_port[sub_port].ifhandle;
  const auto &offsets = port.data.test[sub_port].pm_test_offsets;
  const bool tested = std::any_of(std::begin(offsets), std::end(offsets),
                                  [](uint16_t offset) { return offset != 0; });
  lum_linux::pm_values_are_tested(ifhandle, tested || for_test);
  const cerrno rc = lum_update_pm_ptah_data(ifhandle);
  ++handed_on_;
  if (!CERR_IS_OK(rc)) return rc;
  const std::lock_guard lock(mutex_);
  fed_[ifhandle] = {poll.ended, port.data.test[sub_port].test_alarm_bits};
  return rc;
}

}  // namespace lumd
