#include "platform/controller_watch.h"

#include <algorithm>
#include <vector>

namespace lum_linux {

void controller_watch::observe_controllers(controllers_observer observer) {
  const std::lock_guard lock(observers_mutex_);
  controllers_observer_ = std::move(observer);
}

void controller_watch::observe_updates(update_observer observer) {
  const std::lock_guard lock(observers_mutex_);
  update_observer_ = std::move(observer);
}

void controller_watch::created(std::span<const controller_event> controllers) {
  tell(true, controllers);
  {
    const std::lock_guard lock(mutex_);
    for (const controller_event &controller : controllers) {
      const key position{controller.rsip, controller.sub_port};
      if (controller.ifhandle != 0) {
        ifhandles_[position] = controller.ifhandle;
      } else {
        ifhandles_.erase(position);  // confirmed without a handle: there is no such controller
      }
    }
  }
  changed_.notify_all();
}

void controller_watch::deleted(std::span<const uint32_t> ifhandles) {
  std::vector<controller_event> gone;
  {
    const std::lock_guard lock(mutex_);
    for (const auto &[position, ifhandle] : ifhandles_) {
      if (std::find(ifhandles.begin(), ifhandles.end(), ifhandle) != ifhandles.end()) {
        gone.push_back({position.first, position.second, ifhandle});
      }
    }
  }
  tell(false, gone);
  {
    const std::lock_guard lock(mutex_);
    for (const controller_event &controller : gone) {
      ifhandles_.erase({controller.rsip, controller.sub_port});
    }
  }
  changed_.notify_all();
}

void controller_watch::updated(std::span<const uint32_t> rsips) {
  const std::lock_guard lock(observers_mutex_);
  if (update_observer_) update_observer_(rsips);
}

uint32_t controller_watch::count() const {
  const std::lock_guard lock(mutex_);
  return static_cast<uint32_t>(ifhandles_.size());
}

bool controller_watch::has_any(uint32_t rsip) const {
  const std::lock_guard lock(mutex_);
  const auto first = ifhandles_.lower_bound({rsip, 0});
  return first != ifhandles_.end() && first->first.first == rsip;
}

bool controller_watch::wait_at_least(uint32_t count, std::chrono::milliseconds bound) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, bound, [&] { return ifhandles_.size() >= count; });
}

bool controller_watch::wait_at_most(uint32_t count, std::chrono::milliseconds bound) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, bound, [&] { return ifhandles_.size() <= count; });
}

void controller_watch::tell(bool created, std::span<const controller_event> controllers) {
  const std::lock_guard lock(observers_mutex_);
  if (controllers_observer_) controllers_observer_(created, controllers);
}

}  // namespace lum_linux
