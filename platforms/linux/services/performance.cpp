// The performance-monitoring store: the latest values of every interface, and their extremes and
// averages over 15 minutes and 24 hours.
#include "lum_linux/performance.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <mutex>

#include "services/immortal.h"
#include "services/store_clock.h"

namespace {

using namespace lum_linux;
using std::chrono::seconds;

constexpr size_t longest_name = 63;
constexpr seconds set_at_least{2};  // a leap second is no setting of the clock

using pm_values = std::array<uint32_t, pm_value_count>;

pm_values values_of(const pm_ui_optics_record &record) {
  return {record.reading_3,    record.reading_4[0], record.reading_4[1],
          record.reading_4[2], record.power_1,      record.power_0};
}

store_time bin_start(store_time time, seconds length) {
  const auto since_epoch = std::chrono::floor<seconds>(time.time_since_epoch());
  auto into_bin = since_epoch % length;
  if (into_bin < seconds::zero()) into_bin += length;
  return store_time(since_epoch - into_bin);
}

// The bins of one length: the current one and those before it.
class bin_series {
 public:
  bin_series(seconds length, size_t history, store_time now) : length_(length), history_(history) {
    open(now);
    current_.partial = now > current_.start;
  }

  // Goes on to the bin of `now`. A clock that was set back opens a bin too; one that was set by
  // some seconds leaves a gap, or an overlap, in the bin before and in that of now.
  void advance(store_time now, bool was_set) {
    current_.partial = current_.partial || was_set;
    if (bin_start(now, length_) == current_.start) return;
    if (current_.samples != 0) {
      finished_.push_front(current_);
      if (finished_.size() > history_) finished_.pop_back();
    }
    const bool forward = now > current_.start;
    open(now);
    current_.partial = !forward || was_set;
  }

  void add(const pm_values &values, bool tested) {
    for (size_t i = 0; i < values.size(); ++i) {
      pm_statistics &s = current_.values[i];
      const bool first = current_.samples == 0;
      s.current = values[i];
      s.minimum = first ? values[i] : std::min(s.minimum, values[i]);
      s.maximum = first ? values[i] : std::max(s.maximum, values[i]);
      sums_[i] += values[i];
      s.average = static_cast<double>(sums_[i]) / static_cast<double>(current_.samples + 1);
    }
    ++current_.samples;
    current_.tested = current_.tested || tested;
  }

  const pm_bin &current() const { return current_; }
  std::vector<pm_bin> finished() const { return {finished_.begin(), finished_.end()}; }

 private:
  void open(store_time now) {
    current_ = {};
    current_.start = bin_start(now, length_);
    current_.length = length_;
    sums_ = {};
  }

  seconds length_;
  size_t history_;
  pm_bin current_;
  std::array<uint64_t, pm_value_count> sums_{};
  std::deque<pm_bin> finished_;  // newest first
};

struct pm_port {
  pm_port(uint32_t type, const char *port_name, const store_stamp &now)
      : iftype(type),
        name(port_name),
        seen(now),
        quarters(pm_short_bin, pm_short_history, now.time),
        days(pm_long_bin, pm_long_history, now.time) {}

  // A machine that slept is as good as a clock that was set.
  void advance(const store_stamp &now) {
    const auto set_by = (now.time - seen.time) - (now.moment - seen.moment);
    const bool was_set = std::chrono::abs(set_by) > set_at_least;
    seen = now;
    quarters.advance(now.time, was_set);
    days.advance(now.time, was_set);
  }

  uint32_t iftype;
  std::string name;
  std::optional<pm_ui_optics_record> latest;
  store_stamp updated;
  store_stamp seen;  // when it was last asked or stored
  bool latest_tested = false;
  bool tested = false;
  bin_series quarters;
  bin_series days;
};

// Lives until the process ends, for the library's threads use it until then.
struct pm_store {
  std::mutex lock;
  std::map<uint32_t, pm_port> ports;
};

pm_store &store() {
  static immortal<pm_store> the_store;
  return *the_store;
}

pm_interface view_of(uint32_t ifhandle, pm_port &port, const store_stamp &now) {
  port.advance(now);
  return {ifhandle,
          port.iftype,
          port.name,
          port.latest,
          port.updated,
          port.latest_tested,
          port.quarters.current(),
          port.days.current(),
          port.quarters.finished(),
          port.days.finished()};
}

}  // namespace

const void *pm_ui_db_search_node(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  const auto found = store().ports.find(ifhandle);
  return found == store().ports.end() ? nullptr : &found->second;
}

cerrno pm_ui_port_create(uint32_t iftype, uint32_t ifhandle, const char *name) {
  if (ifhandle == 0 || name == nullptr || strnlen(name, longest_name + 1) > longest_name) {
    return EINVAL;
  }
  try {
    const std::lock_guard hold(store().lock);
    return store().ports.try_emplace(ifhandle, iftype, name, store_stamp_now()).second ? 0 : EEXIST;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

cerrno pm_ui_port_delete(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  return store().ports.erase(ifhandle) == 1 ? 0 : ENOENT;
}

// A record that is not valid changes nothing.
cerrno pm_ui_set_optics_prim(uint32_t ifhandle, const pm_ui_optics_record *record, uint32_t valid,
                             uint32_t flags) {
  if (record == nullptr || flags != 0) return EINVAL;
  try {
    const std::lock_guard hold(store().lock);
    const auto found = store().ports.find(ifhandle);
    if (found == store().ports.end()) return ENOENT;
    if (valid == 0) return 0;
    pm_port &port = found->second;
    const store_stamp now = store_stamp_now();
    port.latest = *record;
    port.latest_tested = port.tested;
    port.updated = now;
    port.advance(now);
    port.quarters.add(values_of(*record), port.tested);
    port.days.add(values_of(*record), port.tested);
    return 0;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

namespace lum_linux {

std::vector<pm_interface> pm_interfaces() {
  const std::lock_guard hold(store().lock);
  const store_stamp now = store_stamp_now();
  std::vector<pm_interface> all;
  for (auto &[ifhandle, port] : store().ports) all.push_back(view_of(ifhandle, port, now));
  return all;
}

std::optional<pm_interface> pm_find(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  const auto found = store().ports.find(ifhandle);
  if (found == store().ports.end()) return std::nullopt;
  return view_of(ifhandle, found->second, store_stamp_now());
}

void pm_values_are_tested(uint32_t ifhandle, bool tested) {
  const std::lock_guard hold(store().lock);
  const auto found = store().ports.find(ifhandle);
  if (found != store().ports.end()) found->second.tested = tested;
}

void pm_forget_all() {
  const std::lock_guard hold(store().lock);
  store().ports.clear();
}

}  // namespace lum_linux
