#include "interface_manager/im_controllers.h"

namespace lum_linux {
namespace {

// Handles of one life of the manager differ from those of the next above this bit.
constexpr uint32_t life_span = 0x00100000;

}  // namespace

im_controllers::created im_controllers::create(const std::string &name) {
  const auto [position, is_new] = by_name_.try_emplace(name, 0);
  if (!is_new) return {position->second, false};
  uint32_t handle = last_handle_;
  do {
    ++handle;
  } while (handle == 0 || by_handle_.contains(handle));
  try {
    by_handle_.emplace(handle, im_controller{name, handle, {}, 0});
  } catch (...) {
    by_name_.erase(position);
    throw;
  }
  position->second = handle;
  last_handle_ = handle;
  return {handle, true};
}

bool im_controllers::remove(const std::string &name) {
  const auto found = by_name_.find(name);
  if (found == by_name_.end()) return false;
  by_handle_.erase(found->second);
  by_name_.erase(found);
  return true;
}

bool im_controllers::update(uint32_t handle, std::optional<uint32_t> state) {
  const auto found = by_handle_.find(handle);
  if (found == by_handle_.end()) return false;
  if (state) found->second.state = *state;
  ++found->second.updates;
  return true;
}

std::vector<im_controller> im_controllers::list() const {
  std::vector<im_controller> result;
  result.reserve(by_handle_.size());
  for (const auto &[handle, controller] : by_handle_) result.push_back(controller);
  return result;
}

const im_controller *im_controllers::find(uint32_t handle) const {
  const auto found = by_handle_.find(handle);
  return found == by_handle_.end() ? nullptr : &found->second;
}

std::optional<uint32_t> im_controllers::handle_of(const std::string &name) const {
  const auto found = by_name_.find(name);
  if (found == by_name_.end()) return {};
  return found->second;
}

void im_controllers::forget() {
  by_handle_.clear();
  by_name_.clear();
  const uint64_t next = (uint64_t{last_handle_} / life_span + 1) * life_span;
  last_handle_ = next < UINT32_MAX ? static_cast<uint32_t>(next) : first_base_;
}

}  // namespace lum_linux
