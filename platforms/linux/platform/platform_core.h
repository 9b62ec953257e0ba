// What the platform object and the callbacks share. It lives until the last callback has let go of
// it, which may be after the platform object: the library's threads never end.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/periodic.h"
#include "lum_linux/platform.h"
#include "platform/controller_watch.h"
#include "platform/directory_lock.h"

namespace lum_linux {

struct platform::core {
  node_description node;
  directory_lock state_lock;
  std::map<uint32_t, std::atomic<uint32_t>> fw_upgrade;  // by rsip; fixed after the start
  controller_watch watch;
  std::unique_ptr<lum_linux::modules> modules;
  std::unique_ptr<lum_linux::leds> leds;
  std::unique_ptr<interface_manager> im;
  std::unique_ptr<periodic> keeper;  // of the checkpoint store
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
