// The Linux platform of one node: every service and callback that liblum needs, started together.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "lum.h"
#include "lum_linux/interface_manager.h"
#include "lum_linux/node_description.h"

namespace lum_linux {

class modules;
class leds;

// One controller of a ctrl_op_notify.
struct controller_event {
  uint32_t rsip = 0;
  uint32_t sub_port = 0;
  uint32_t ifhandle = 0;
};

// Observers run on the interface manager's thread, must be quick and must not call the platform's
// stop() or observe...().
using controllers_observer =
    std::function<void(bool created, std::span<const controller_event> controllers)>;
using update_observer = std::function<void(std::span<const uint32_t> rsips)>;

// There is one at a time in a process, because the callbacks carry no context. All calls may come
// from any threads.
class platform {
 public:
  // Starts every service: folders, traces, checkpoints, event manager, interface manager, modules,
  // LEDs. Returns null with `error` saying what failed, or throws std::bad_alloc; what had started
  // is stopped again. Without a usable state directory nothing is kept, as checkpoints_status()
  // says. Call it before lum_lib_init.
  static std::unique_ptr<platform> start(const node_description &node, std::string &error);

  // As stop() with its default bound.
  ~platform();
  platform(const platform &) = delete;
  platform &operator=(const platform &) = delete;

  // For lum_infra_params. The table is constant and lives for ever; once the platform has stopped
  // its callbacks answer 19 and touch nothing.
  const lum_platform_cbs &callbacks() const;
  event_manager evm() const;

  const node_description &node() const;
  interface_manager &im();
  lum_linux::modules &modules();
  lum_linux::leds &leds();

  // Called for every controller batch the library has finished, before wait_created wakes up. A
  // later observer replaces an earlier one; an empty one takes it back. Returns once an earlier one
  // is no longer running.
  void observe_controllers(controllers_observer observer);
  void observe_updates(update_observer observer);

  // Controllers created and not deleted, as far as the library has told.
  uint32_t created_controllers() const;
  // Whether any of them is the port's.
  bool has_controllers(uint32_t rsip) const;
  // Waits until there are at least `count` of them; false when `bound` passed before.
  bool wait_created(uint32_t count, std::chrono::milliseconds bound) const;
  // Waits until there are at most `count` of them.
  bool wait_deleted(uint32_t count, std::chrono::milliseconds bound) const;

  // What fw_upgrade_status answers for a port: 0, as at the start, or in progress. Returns false
  // for a port the node does not have.
  bool set_fw_upgrade(uint32_t rsip, uint32_t status);
  uint32_t fw_upgrade(uint32_t rsip) const;

  // Ends the services' threads: no completion, handler or observer runs after it. Threads of the
  // library may go on calling the callbacks. Returns false when a thread that hangs in somebody
  // else's code had to be left behind after `bound`.
  bool stop(std::chrono::milliseconds bound = std::chrono::seconds(5));

  struct core;

 private:
  explicit platform(std::shared_ptr<core> state);
  std::shared_ptr<core> core_;
};

}  // namespace lum_linux
