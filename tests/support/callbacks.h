// The thirteen callbacks and what stands behind them.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "lum.h"
#include "spin.h"

namespace support {

// Every slot set.
lum_platform_cbs full_callbacks();

class client_side {
 public:
  // The state of a port's LED: what was set last, 0 before.
  uint32_t led(uint32_t rsip);
  void set_led(uint32_t rsip, uint32_t state);
  // The firmware-upgrade status of a port's module.
  uint32_t upgrade(uint32_t rsip);
  void set_upgrade(uint32_t rsip, uint32_t status);
  // Names of interfaces that only the client knows; ifname_from_ifh answers 2 for any other.
  std::string name(uint32_t ifhandle);
  void set_name(uint32_t ifhandle, const std::string &name);

 private:
  spin lock_;
  std::map<uint32_t, uint32_t> leds_;
  std::map<uint32_t, uint32_t> upgrades_;
  std::map<uint32_t, std::string> names_;
};

extern client_side &client;

}  // namespace support
