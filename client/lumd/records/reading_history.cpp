#include "records/reading_history.h"

#include <algorithm>
#include <new>

namespace lumd {
namespace {

using std::chrono::steady_clock;
using std::chrono::system_clock;
using tenths = std::chrono::duration<int64_t, std::ratio<1, 10>>;

// Moments in memory count from then: what earlier processes have kept is later too.
steady_clock::time_point origin() {
  static const auto then = steady_clock::now() - reading_history::span - std::chrono::minutes(1);
  return then;
}

tenths since_origin(steady_clock::time_point time) {
  return std::chrono::duration_cast<tenths>(time - origin());
}

// In ten years of work there is no more than that.
uint32_t number_of(tenths since) {
  return static_cast<uint32_t>(std::clamp<int64_t>(since.count(), 0, UINT32_MAX));
}

uint32_t oldest_moment() {
  return number_of(since_origin(steady_clock::now() - reading_history::span));
}

}  // namespace

void reading_history::series::add(const reading_sample &sample) {
  if (samples.size() < most_samples) {
    if (samples.capacity() == 0) samples.reserve(most_samples);
    samples.push_back(sample);
    return;
  }
  samples[first] = sample;
  first = (first + 1) % samples.size();
}

uint32_t reading_history::moment_of(clock::time_point time) {
  return number_of(since_origin(time));
}

void reading_history::add(uint32_t rsip, clock::time_point polled,
                          const decltype(reading_sample::readings) &readings) noexcept {
  try {
    const std::lock_guard lock(mutex_);
    series &own = series_[rsip];
    const uint32_t moment = moment_of(polled);
    if (moment > own.latest()) own.add({moment, readings});
  } catch (const std::bad_alloc &) {
  }
}

// The moments of the block count from the earliest sample, told by the clock as it is set now.
sample_block reading_history::later_than(uint32_t rsip, const series &from, uint32_t moment,
                                         std::size_t most) {
  sample_block block;
  block.rsip = rsip;
  moment = std::max(moment, oldest_moment());
  for (std::size_t i = 0; i < from.samples.size() && block.samples.size() < most; ++i) {
    if (from.at(i).moment > moment) block.samples.push_back(from.at(i));
  }
  if (block.samples.empty()) return block;
  block.latest = block.samples.back().moment;
  const uint32_t begun = block.samples.front().moment;
  block.begun = std::chrono::floor<std::chrono::milliseconds>(
      system_clock::now() - (since_origin(steady_clock::now()) - tenths(begun)));
  for (reading_sample &one : block.samples) one.moment -= begun;
  return block;
}

sample_block reading_history::of(uint32_t rsip) const {
  const std::lock_guard lock(mutex_);
  const auto found = series_.find(rsip);
  return found == series_.end() ? sample_block{rsip, {}, {}, 0}
                                : later_than(rsip, found->second, 0, most_samples);
}

std::vector<sample_block> reading_history::unkept() const {
  const std::lock_guard lock(mutex_);
  std::vector<sample_block> blocks;
  for (const auto &[rsip, own] : series_) {
    for (uint32_t from = own.kept; own.latest() > from;) {
      auto block = later_than(rsip, own, from, samples_of_a_block);
      if (block.samples.empty()) break;
      from = block.latest;
      blocks.push_back(std::move(block));
    }
  }
  return blocks;
}

void reading_history::mark_kept(const std::vector<sample_block> &blocks) {
  const std::lock_guard lock(mutex_);
  for (const sample_block &block : blocks) {
    const auto found = series_.find(block.rsip);
    if (found != series_.end()) found->second.kept = std::max(found->second.kept, block.latest);
  }
}

void reading_history::mark_nothing_kept() {
  const std::lock_guard lock(mutex_);
  for (auto &[rsip, own] : series_) own.kept = 0;
}

void reading_history::take_back(const std::vector<sample_block> &earlier) {
  const auto now = system_clock::now();
  const tenths current = since_origin(steady_clock::now());
  std::map<uint32_t, series> all;
  for (const sample_block &block : earlier) {
    series &own = all[block.rsip];
    for (reading_sample one : block.samples) {
      const auto age = std::chrono::duration_cast<tenths>(now - block.begun) - tenths(one.moment);
      if (age <= tenths(0) || age >= span) continue;
      one.moment = number_of(current - age);
      if (one.moment > own.latest()) own.add(one);
    }
    own.kept = own.latest();
  }
  const std::lock_guard lock(mutex_);
  for (auto &[rsip, own] : series_) {
    series &joined = all[rsip];
    for (std::size_t i = 0; i < own.samples.size(); ++i) {
      if (own.at(i).moment > joined.latest()) joined.add(own.at(i));
    }
  }
  series_ = std::move(all);
}

}  // namespace lumd
