// The interface manager's table: which controllers there are, under which handles.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "lum_linux/interface_manager.h"

namespace lum_linux {

// Not locked; the interface manager does that.
class im_controllers {
 public:
  // The first handle is one above `base`.
  explicit im_controllers(uint32_t base) : first_base_(base), last_handle_(base) {}

  struct created {
    uint32_t handle = 0;  // never 0
    bool is_new = false;
  };
  // Returns the handle of `name`, giving it one when it is new. May throw std::bad_alloc, with
  // nothing changed.
  created create(const std::string &name);
  // Returns false when there is no such controller.
  bool remove(const std::string &name);
  // Counts an update, and takes over the state when there is one. False for an unknown handle.
  bool update(uint32_t handle, std::optional<uint32_t> state);

  std::vector<im_controller> list() const;
  // Null for an unknown handle; until the next change.
  const im_controller *find(uint32_t handle) const;
  std::optional<uint32_t> handle_of(const std::string &name) const;

  // Forgets everything, and starts at the next round handle above all given out so far.
  void forget();

 private:
  uint32_t first_base_;
  uint32_t last_handle_;
  std::map<uint32_t, im_controller> by_handle_;
  std::unordered_map<std::string, uint32_t> by_name_;
};

}  // namespace lum_linux
