// The settings of a sub-port: where the library keeps them, and their change.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string_view>

#include "lum.h"
#include "lum_linux/node_description.h"
#include "node/outcome.h"
#include "words/settings.h"

namespace lumd {

class driver;

using lum_words::setting_id;

struct setting {
  setting_id id;
  uint32_t lum_port_cfg::*field;
  uint32_t position;    // in the library's input record
  uint64_t change_bit;  // several settings may share one: they are taken over together
  bool is_signed = false;

  constexpr std::string_view name() const { return name_of(lum_words::settings, id); }
};

inline constexpr std::array<setting, lum_words::settings.size()> settings = {{
    {setting_id::threshold, &lum_port_cfg::threshold, LUM_HW_IN_THRESHOLD, LUM_CHANGE_THRESHOLD,
     true},
    {setting_id::p2_setting, &lum_port_cfg::p2_setting, LUM_HW_IN_P2_SETTING,
     LUM_CHANGE_P2_SETTING},
    {setting_id::mode, &lum_port_cfg::mode, LUM_HW_IN_MODE, LUM_CHANGE_MODE},
    {setting_id::setting_a, &lum_port_cfg::setting_a, LUM_HW_IN_SETTING_A, LUM_CHANGE_SETTINGS},
    {setting_id::setting_b, &lum_port_cfg::setting_b, LUM_HW_IN_SETTING_B, LUM_CHANGE_SETTINGS},
    {setting_id::enable, &lum_port_cfg::enable_flag, LUM_HW_IN_ENABLE_FLAG, LUM_CHANGE_SETTINGS},
    {setting_id::sub1, &lum_port_cfg::sub1_flag, LUM_HW_IN_SUB1_FLAG, LUM_CHANGE_SETTINGS},
}};
static_assert(std::equal(settings.begin(), settings.end(), lum_words::settings.begin(),
                         [](const setting &one, const lum_words::setting &word) {
                           return one.id == word.id;
                         }));

// The members of lumd::settings that are to be changed, with their values.
using wanted_settings = std::map<const setting *, uint32_t>;

struct settings_report : action_report {
  uint32_t ifhandle = 0;
  uint64_t change_bits = 0;
  bool module_written = false;
  lum_port_cfg stored = {};  // afterwards
};

// What the library writes into a port's module from the making of this on.
class module_writing {
 public:
  module_writing(driver &node, uint32_t rsip);
  // All of it has reached the module so far, as far as transfers tell.
  bool has_reached() const;

 private:
  uint64_t failed_transfers() const;

  driver &node_;
  uint32_t rsip_;
  uint64_t failed_before_;
};

// Changes what is wanted of one sub-port, 0 or 1. Waits for the module, and up to `wait` for
// another change of the port.
outcome<settings_report> change_settings(driver &node, const lum_linux::port_description &port,
                                         uint32_t sub_port, const wanted_settings &wanted,
                                         std::chrono::milliseconds wait);

}  // namespace lumd
