// What a module holds of the settings, read back from the registers that the library writes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "lum_linux/node_description.h"
#include "node/settings.h"

namespace lumd {

class driver;

struct held_setting {
  std::optional<uint32_t> raw;    // what the register holds; nothing when it is not known
  std::optional<uint32_t> upper;  // of a threshold: its second word, which is to be 100 above
  std::optional<double> value;    // what would be set for that; nothing when no value says it
  std::string reason;             // why the register is not known; else empty
};

struct held_settings {
  // By sub-port and in the order of `settings`.
  std::array<std::array<held_setting, settings.size()>, LUM_SUB_PORTS> of;
};

// When nothing is known of any of them.
held_settings not_held(const std::string &reason);

// Looks into the module's memory, past its faults. Waits for the module.
held_settings read_held(driver &node, const lum_linux::port_description &port);

// Whether sub-port `sub_port` of a module has a register for the setting at all.
bool has_register(setting_id id, uint32_t sub_port);

// Whether a known register holds what the library writes for the configuration.
bool agrees(const setting &setting, const lum_port_cfg &in_force, const held_setting &held);

}  // namespace lumd
