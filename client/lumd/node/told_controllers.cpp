#include "told_controllers.h"

namespace lumd {

void told_controllers::note(bool created,
                            std::span<const lum_linux::controller_event> controllers) {
  std::lock_guard lock(mutex_);
  for (const auto &controller : controllers) {
    const std::pair key(controller.rsip, controller.sub_port);
    if (created) {
      controllers_.insert(key);
    } else {
      controllers_.erase(key);
    }
  }
}

bool told_controllers::has_any(uint32_t rsip) const {
  std::lock_guard lock(mutex_);
  const auto first = controllers_.lower_bound({rsip, 0});
  return first != controllers_.end() && first->first == rsip;
}

std::size_t told_controllers::count() const {
  std::lock_guard lock(mutex_);
  return controllers_.size();
}

}  // namespace lumd
