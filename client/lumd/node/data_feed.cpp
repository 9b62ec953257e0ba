#include "node/data_feed.h"

#include <set>

#include "lum.h"
#include "lum_linux/performance.h"
#include "node/driver.h"

namespace lumd {
namespace {

decltype(reading_sample::readings) readings_of(const port_words &port) {
  static_assert(LUM_SUB_PORTS == sub_ports_of_a_sample);
  decltype(reading_sample::readings) all;
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = port.controllers[i].readings;
  return all;
}

}  // namespace

bool data_feed::feed_polled(std::vector<port_words> &words) {
  const std::unique_lock held(feeding_, std::try_to_lock);
  const uint64_t polls = node_.polling().polls();
  const polling_standing before = node_.polling().standing();
  gather_words(words);
  const polling_standing after = node_.polling().standing();
  if (fed_up_to_ == polls) return true;
  if (!held) return false;
  // Nothing was being stored while the words were gathered.
  const bool is_at_rest = !before.running && before == after;
  forget_all_but(words);
  for (const port_words &port : words) feed(port, is_at_rest);
  if (is_at_rest) fed_up_to_ = polls;
  return is_at_rest;
}

void data_feed::feed(const port_words &port, bool is_at_rest) {
  if (port.facts.going || !port.facts.inserted) return;
  const auto poll = node_.polling().last_poll(port.facts.rsip);
  if (!poll || poll->started <= node_.cages().begun(port.facts.rsip)) return;
  if (is_at_rest) node_.history().add(port.facts.rsip, poll->ended, readings_of(port));
  for (const port_words::controller &controller : port.controllers) {
    if (!controller.created) continue;
    const auto last = fed(controller.ifhandle);
    if (!last || last->ended != poll->ended) hand_on(controller, *poll, false);
  }
}

// Handles are never given out twice. Those of a deletion stay for a while.
void data_feed::forget_all_but(const std::vector<port_words> &ports) {
  {
    const std::lock_guard lock(mutex_);
    if (fed_.size() <= ports.size() * LUM_SUB_PORTS) return;
  }
  std::set<uint32_t> handles;
  for (const port_words &port : ports) {
    for (const auto &controller : port.controllers) handles.insert(controller.ifhandle);
  }
  const std::lock_guard lock(mutex_);
  std::erase_if(fed_, [&](const auto &one) { return !handles.contains(one.first); });
}

std::optional<fed_poll> data_feed::fed(uint32_t ifhandle) const {
  const std::lock_guard lock(mutex_);
  const auto found = fed_.find(ifhandle);
  return found == fed_.end() ? std::nullopt : std::optional(found->second);
}

cerrno data_feed::hand_on_for_test(const port_copy &port, std::size_t sub_port,
                                   const module_poll &poll) {
  port_words::controller to;
  to.ifhandle = port.data.sub_port[sub_port].ifhandle;
  to.forced_alarms = port.data.test[sub_port].test_alarm_bits;
  return hand_on(to, poll, true);
}

cerrno data_feed::hand_on(const port_words::controller &to, const module_poll &poll,
                          bool for_test) {
  lum_linux::pm_values_are_tested(to.ifhandle, to.tested || for_test);
  const cerrno rc = lum_update_pm_ptah_data(to.ifhandle);
  ++handed_on_;
  if (!CERR_IS_OK(rc)) return rc;
  const std::lock_guard lock(mutex_);
  fed_[to.ifhandle] = {poll.ended, to.forced_alarms};
  return rc;
}

}  // namespace lumd
