// Which controllers exist, as the library has told: it tells once it is done with a batch.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <span>
#include <utility>

#include "lum_linux/platform.h"

namespace lumd {

// Any thread may make any call.
class told_controllers {
 public:
  // The platform's observer.
  void note(bool created, std::span<const lum_linux::controller_event> controllers);

  // The library has told of a controller of the port, and not of its deletion.
  bool has_any(uint32_t rsip) const;

  std::size_t count() const;

 private:
  mutable std::mutex mutex_;
  std::set<std::pair<uint32_t, uint32_t>> controllers_;  // rsip and sub-port
};

}  // namespace lumd
