#include "records/event_log.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace lumd {

void event_log::begin(std::vector<event> earlier, uint64_t next) {
  const std::lock_guard lock(mutex_);
  const auto own = std::find_if(events_.begin(), events_.end(),
                                [this](const event &one) { return one.number >= first_own_; });
  // A file that has been made anew holds less than what is known.
  if (earlier.empty()) {
    earlier.assign(std::make_move_iterator(events_.begin()), std::make_move_iterator(own));
  }
  // Others have had the numbers below `next`.
  const uint64_t further = std::max(next, first_own_) - first_own_;
  std::deque<event> all(std::make_move_iterator(earlier.begin()),
                        std::make_move_iterator(earlier.end()));
  for (auto one = own; one != events_.end(); ++one) {
    all.push_back(std::move(*one));
    all.back().number += further;
  }
  events_ = std::move(all);
  first_own_ += further;
  next_ += further;
  kept_ = first_own_ - 1;
}

void event_log::add(event happened, const std::string &subject) noexcept {
  std::function<void()> call;
  try {
    happened.time = std::chrono::system_clock::now();
    const std::lock_guard lock(mutex_);
    if (is_too_fast(subject, happened)) return;
    take(std::move(happened));
    call = more_;
  } catch (const std::bad_alloc &) {
    const std::lock_guard lock(mutex_);
    ++lost_;
  }
  if (call) call();
}

// Takes the event when it is.
bool event_log::is_too_fast(const std::string &subject, event &happened) {
  const auto now = clock::now();
  series &one = series_[subject];
  const bool is_over = one.told == 0 || now - one.begun >= window;
  if (is_over && one.held_back == 0) one = {now, 0, 0, std::nullopt};
  if (one.held_back == 0 && one.told < most_at_once) {
    ++one.told;
    return false;
  }
  ++one.held_back;
  one.last = std::move(happened);
  return true;
}

void event_log::sum_up(clock::time_point now) {
  std::function<void()> call;
  {
    const std::lock_guard lock(mutex_);
    for (auto at = series_.begin(); at != series_.end();) {
      series &one = at->second;
      if (now - one.begun < window) {
        ++at;
      } else if (one.held_back == 0) {
        at = series_.erase(at);
      } else {
        event summary = std::move(*one.last);
        summary.left_out = one.held_back - 1;
        // As long as it goes on like that, each window is one event.
        one = {now, most_at_once, 0, std::nullopt};
        ++at;
        take(std::move(summary));
        call = more_;
      }
    }
  }
  if (call) call();
}

// The caller holds the mutex.
void event_log::take(event happened) {
  happened.number = next_;
  counts_[happened.kind] += 1 + happened.left_out;
  if (untold_.size() < most_events) untold_.push_back(happened);
  events_.push_back(std::move(happened));
  ++next_;
  if (events_.size() <= most_events) return;
  if (events_.front().number > kept_) ++lost_;
  events_.pop_front();
}

bool event_log::holds_back() const {
  const std::lock_guard lock(mutex_);
  return std::any_of(series_.begin(), series_.end(),
                     [](const auto &one) { return one.second.held_back != 0; });
}

event_log::selection event_log::after(uint64_t number, std::size_t most) const {
  const std::lock_guard lock(mutex_);
  selection found;
  found.last = next_ - 1;
  if (events_.empty()) return found;
  found.first = events_.front().number;
  const auto begin =
      std::upper_bound(events_.begin(), events_.end(), number,
                       [](uint64_t wanted, const event &one) { return wanted < one.number; });
  const auto count = std::min<std::size_t>(most, static_cast<std::size_t>(events_.end() - begin));
  found.events.assign(begin, begin + static_cast<std::ptrdiff_t>(count));
  return found;
}

uint64_t event_log::last() const {
  const std::lock_guard lock(mutex_);
  return next_ - 1;
}

std::vector<event> event_log::untold() {
  const std::lock_guard lock(mutex_);
  return std::exchange(untold_, {});
}

std::map<std::string, uint64_t, std::less<>> event_log::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

std::vector<event> event_log::unkept(std::size_t most) const {
  uint64_t kept = 0;
  {
    const std::lock_guard lock(mutex_);
    kept = kept_;
  }
  return after(kept, most).events;
}

void event_log::kept(uint64_t number) {
  const std::lock_guard lock(mutex_);
  kept_ = std::max(kept_, number);
}

bool event_log::is_all_kept() const {
  const std::lock_guard lock(mutex_);
  return kept_ + 1 >= next_;
}

uint64_t event_log::lost() const {
  const std::lock_guard lock(mutex_);
  return lost_;
}

void event_log::on_more(std::function<void()> call) {
  const std::lock_guard lock(mutex_);
  more_ = std::move(call);
}

}  // namespace lumd
