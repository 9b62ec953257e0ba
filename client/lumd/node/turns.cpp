#include "node/turns.h"

#include <algorithm>

#include "lum.h"

namespace lumd {

slot_turns::turn slot_turns::take(const std::set<uint32_t> &slots, std::chrono::milliseconds wait) {
  std::unique_lock held(mutex_);
  const bool free = changed_.wait_for(held, wait, [&] {
    return std::none_of(slots.begin(), slots.end(),
                        [this](uint32_t slot) { return taken_.contains(slot); });
  });
  if (!free) return {};
  turn mine(*this, slots);
  taken_.insert(slots.begin(), slots.end());
  return mine;
}

slot_turns::turn slot_turns::take_all(std::chrono::milliseconds wait) {
  std::set<uint32_t> all;
  for (uint32_t slot = 0; slot < LUM_MAX_SLOTS; ++slot) all.insert(slot);
  return take(all, wait);
}

void slot_turns::turn::end() {
  if (of_ == nullptr) return;
  {
    const std::lock_guard held(of_->mutex_);
    for (const uint32_t slot : slots_) of_->taken_.erase(slot);
  }
  of_->changed_.notify_all();
  of_ = nullptr;
}

}  // namespace lumd
