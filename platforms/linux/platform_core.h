// What the platform object and the callbacks share. It lives until the last callback has let go of
// it, which may be after the platform object: the library's threads never end.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/platform.h"

namespace lum_linux {

// Keeps other processes away from the state directory while it lives.
class directory_lock {
 public:
  directory_lock() = default;
  ~directory_lock() { release(); }
  directory_lock(const directory_lock &) = delete;
  directory_lock &operator=(const directory_lock &) = delete;

  // Returns 0, 11 when another process has the directory, or the errno of the file operation.
  int acquire(const std::filesystem::path &directory);
  void release();

 private:
  int fd_ = -1;
};

// Which controllers there are, as the library has told, and who wants to hear of it.
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

struct platform::core {
  node_description node;
  directory_lock state_lock;
  std::map<uint32_t, std::atomic<uint32_t>> fw_upgrade;  // by rsip; fixed after the start
  controller_watch watch;
  std::unique_ptr<lum_linux::modules> modules;
  std::unique_ptr<lum_linux::leds> leds;
  std::unique_ptr<interface_manager> im;
  event_manager evm = 0;
  bool stopped = false;  // guarded by stop_mutex
  bool stopped_whole = true;
  std::mutex stop_mutex;
};

// The callback table; constant, and alive for ever.
const lum_platform_cbs &platform_callbacks();

// The process's one place for a platform: reserved while one starts, published while the callbacks
// reach it, withdrawn when it stops and given up when it has stopped.
bool reserve_platform();
void publish_platform(const std::shared_ptr<platform::core> &core);
void withdraw_platform();
void give_up_platform();

}  // namespace lum_linux
