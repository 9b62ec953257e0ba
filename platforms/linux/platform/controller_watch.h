// Which controllers there are, as the library has told, and who wants to hear of it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <utility>

#include "lum_linux/platform.h"

namespace lum_linux {

class controller_watch {
 public:
  void observe_controllers(controllers_observer observer);
  void observe_updates(update_observer observer);

  // The two notifications; on the interface manager's thread.
  void created(std::span<const controller_event> controllers);
  void deleted(std::span<const uint32_t> ifhandles);
  void updated(std::span<const uint32_t> rsips);

  uint32_t count() const;
  bool has_any(uint32_t rsip) const;
  bool wait_at_least(uint32_t count, std::chrono::milliseconds bound) const;
  bool wait_at_most(uint32_t count, std::chrono::milliseconds bound) const;

 private:
  using key = std::pair<uint32_t, uint32_t>;  // rsip, sub-port
  void tell(bool created, std::span<const controller_event> controllers);

  mutable std::mutex mutex_;  // guards ifhandles_; never held with the other one
  mutable std::condition_variable changed_;
  std::map<key, uint32_t> ifhandles_;
  std::mutex observers_mutex_;  // held while an observer runs
  controllers_observer controllers_observer_;
  update_observer update_observer_;
};

}  // namespace lum_linux
