// A port's configuration, as the library has stored it.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "lum.h"
#include "port_data.h"
#include "router.h"

namespace lumd {

// One setting of a sub-port under the name that the API gives it.
struct setting {
  std::string_view name;
  uint32_t lum_port_cfg::*field;
  uint32_t position;    // in the library's input record
  uint64_t change_bit;  // several settings may share one: they are taken over together
  bool is_signed = false;
};

inline constexpr std::array<setting, 7> settings = {{
    {"threshold", &lum_port_cfg::threshold, LUM_HW_IN_THRESHOLD, LUM_CHANGE_THRESHOLD, true},
    {"p2_setting", &lum_port_cfg::p2_setting, LUM_HW_IN_P2_SETTING, LUM_CHANGE_P2_SETTING},
    {"mode", &lum_port_cfg::mode, LUM_HW_IN_MODE, LUM_CHANGE_MODE},
    {"setting_a", &lum_port_cfg::setting_a, LUM_HW_IN_SETTING_A, LUM_CHANGE_SETTINGS},
    {"setting_b", &lum_port_cfg::setting_b, LUM_HW_IN_SETTING_B, LUM_CHANGE_SETTINGS},
    {"enable", &lum_port_cfg::enable_flag, LUM_HW_IN_ENABLE_FLAG, LUM_CHANGE_SETTINGS},
    {"sub1", &lum_port_cfg::sub1_flag, LUM_HW_IN_SUB1_FLAG, LUM_CHANGE_SETTINGS},
}};

// Every setting, the change bits, and the names of the settings that have ever been set.
json show_configuration(const lum_port_cfg &configuration);

// The port's checkpoint record, the lock that a deletion keeps, and what provisioning has marked.
void add_upkeep(const port_copy &port, json &shown);

}  // namespace lumd
