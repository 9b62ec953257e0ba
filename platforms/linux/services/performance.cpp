// The performance-monitoring store: the latest values of every interface, and their extremes and
// averages over 15 minutes and 24 hours.
#include "lum_linux/performance.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <set>
#include <string_view>

#include "services/immortal.h"
#include "services/store_clock.h"

namespace {

using namespace lum_linux;
using std::chrono::seconds;

constexpr size_t longest_interface_name = 63;
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
      // What is kept of a bin while it lasts is of a part of it.
      finished_.push_front({current_, current_.partial ? current_kept_ : 0});
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
  std::vector<pm_bin> finished() const {
    std::vector<pm_bin> bins;
    for (const finished_bin &one : finished_) bins.push_back(one.bin);
    return bins;
  }

  // The current bin ends with the process, unless the next one goes on with it.
  template <typename Use>
  void each_unkept(const Use &use) const {
    for (const finished_bin &one : finished_) {
      if (one.kept != one.bin.samples) use(one.bin);
    }
    if (current_.samples == current_kept_) return;
    pm_bin so_far = current_;
    so_far.partial = true;
    use(so_far);
  }

  // A bin that has been finished since is kept again, for it may be whole.
  void mark_kept(const pm_bin &bin) {
    if (bin.start == current_.start) current_kept_ = bin.samples;
    for (finished_bin &one : finished_) {
      if (one.bin.start == bin.start && one.bin.partial == bin.partial) one.kept = bin.samples;
    }
  }

  void mark_nothing_kept() {
    current_kept_ = 0;
    for (finished_bin &one : finished_) one.kept = 0;
  }

  void take_back(const pm_bin &earlier) {
    if (earlier.start == current_.start) {
      take_back_current(earlier);
    } else if (earlier.start < current_.start) {
      take_back_finished(earlier);
    }
  }

 private:
  struct finished_bin {
    pm_bin bin;
    uint64_t kept = 0;  // samples of it that outlive the process
  };

  void open(store_time now) {
    current_ = {};
    current_.start = bin_start(now, length_);
    current_.length = length_;
    current_kept_ = 0;
    sums_ = {};
  }

  // Between the two no samples were taken.
  void take_back_current(const pm_bin &earlier) {
    const uint64_t samples = current_.samples + earlier.samples;
    for (size_t i = 0; i < current_.values.size(); ++i) {
      const pm_statistics &before = earlier.values[i];
      pm_statistics &s = current_.values[i];
      sums_[i] += static_cast<uint64_t>(
          std::llround(before.average * static_cast<double>(earlier.samples)));
      s = current_.samples == 0 ? before
                                : pm_statistics{s.current, std::min(s.minimum, before.minimum),
                                                std::max(s.maximum, before.maximum), 0};
      s.average = static_cast<double>(sums_[i]) / static_cast<double>(samples);
    }
    current_.samples = samples;
    current_.partial = true;
    current_.tested = current_.tested || earlier.tested;
  }

  void take_back_finished(const pm_bin &earlier) {
    const auto place =
        std::find_if(finished_.begin(), finished_.end(),
                     [&](const finished_bin &one) { return one.bin.start <= earlier.start; });
    if (place != finished_.end() && place->bin.start == earlier.start) return;
    finished_.insert(place, {earlier, earlier.samples});
    if (finished_.size() > history_) finished_.pop_back();
  }

  seconds length_;
  size_t history_;
  pm_bin current_;
  uint64_t current_kept_ = 0;  // samples of it that outlive the process
  std::array<uint64_t, pm_value_count> sums_{};
  std::deque<finished_bin> finished_;  // newest first
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

  bin_series &series_of(seconds length) { return length == pm_short_bin ? quarters : days; }

  uint32_t iftype;
  std::string name;
  std::optional<pm_ui_optics_record> latest;
  store_stamp updated;
  store_stamp seen;  // when it was last asked or stored
  bool latest_tested = false;
  bool tested = false;
  bool may_be_kept = false;  // some of its bins
  bin_series quarters;
  bin_series days;
};

// Lives until the process ends, for the library's threads use it until then.
struct pm_store {
  std::mutex lock;
  std::map<uint32_t, pm_port> ports;
  std::multimap<std::string, pm_bin> earlier;  // of interfaces that are not there yet, by name
  std::set<std::string> deleted;               // interfaces, whose bins may be kept still
};

pm_store &store() {
  static immortal<pm_store> the_store;
  return *the_store;
}

// Whoever kept it may have been another program, or a disk that lies.
bool can_have_been_kept(const pm_bin &bin, const store_stamp &now) {
  constexpr uint64_t most_samples = uint64_t{1}
                                    << 20;  // of a day's: the library polls each second at most
  const bool is_aligned = (bin.length == pm_short_bin || bin.length == pm_long_bin) &&
                          bin_start(bin.start, bin.length) == bin.start;
  return is_aligned && bin.start <= now.time &&
         bin.start > now.time - 2 * pm_long_history * pm_long_bin && bin.samples > 0 &&
         bin.samples <= most_samples &&
         std::all_of(bin.values.begin(), bin.values.end(), [](const pm_statistics &s) {
           return s.minimum <= s.current && s.current <= s.maximum && s.average >= s.minimum &&
                  s.average <= s.maximum;
         });
}

// What an earlier process kept of the interface, if anything.
void take_earlier(pm_port &port) {
  const auto [first, last] = store().earlier.equal_range(port.name);
  for (auto one = first; one != last; ++one) {
    port.may_be_kept = true;
    port.series_of(one->second.length).take_back(one->second);
  }
  store().earlier.erase(first, last);
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
  if (ifhandle == 0 || name == nullptr ||
      strnlen(name, longest_interface_name + 1) > longest_interface_name) {
    return EINVAL;
  }
  try {
    const std::lock_guard hold(store().lock);
    const auto [port, is_new] =
        store().ports.try_emplace(ifhandle, iftype, name, store_stamp_now());
    if (is_new) take_earlier(port->second);
    return is_new ? 0 : EEXIST;
  } catch (const std::exception &) {
    return ENOMEM;
  }
}

cerrno pm_ui_port_delete(uint32_t ifhandle) {
  const std::lock_guard hold(store().lock);
  const auto found = store().ports.find(ifhandle);
  if (found == store().ports.end()) return ENOENT;
  try {
    if (found->second.may_be_kept) store().deleted.insert(found->second.name);
  } catch (const std::exception &) {  // its bins come back with the next process
  }
  store().ports.erase(found);
  return 0;
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

pm_unkept pm_not_kept_yet() {
  const std::lock_guard hold(store().lock);
  pm_unkept unkept;
  unkept.deleted.assign(store().deleted.begin(), store().deleted.end());
  for (auto &[ifhandle, port] : store().ports) {
    const auto add = [&unkept, &owner = port](const pm_bin &bin) {
      unkept.bins.push_back({owner.name, bin});
      owner.may_be_kept = true;
    };
    port.quarters.each_unkept(add);
    port.days.each_unkept(add);
  }
  return unkept;
}

void pm_mark_kept(const pm_unkept &kept) {
  const std::lock_guard hold(store().lock);
  for (const std::string &name : kept.deleted) store().deleted.erase(name);
  std::map<std::string_view, pm_port *> by_name;
  for (auto &[ifhandle, port] : store().ports) by_name.emplace(port.name, &port);
  for (const pm_kept_bin &one : kept.bins) {
    const auto port = by_name.find(one.name);
    if (port != by_name.end()) port->second->series_of(one.bin.length).mark_kept(one.bin);
  }
}

void pm_mark_nothing_kept() {
  const std::lock_guard hold(store().lock);
  for (auto &[ifhandle, port] : store().ports) {
    port.quarters.mark_nothing_kept();
    port.days.mark_nothing_kept();
  }
}

void pm_take_back(const std::vector<pm_kept_bin> &earlier) {
  const std::lock_guard hold(store().lock);
  const store_stamp now = store_stamp_now();
  for (const pm_kept_bin &one : earlier) {
    if (can_have_been_kept(one.bin, now)) store().earlier.emplace(one.name, one.bin);
  }
  for (auto &[ifhandle, port] : store().ports) {
    port.advance(now);
    take_earlier(port);
  }
}

void pm_forget_all() {
  const std::lock_guard hold(store().lock);
  store().ports.clear();
  store().earlier.clear();
  store().deleted.clear();
}

}  // namespace lum_linux
