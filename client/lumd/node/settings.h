// The settings of a sub-port: where the library keeps them, and their change.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>

#include "lum.h"
#include "lum_linux/node_description.h"
#include "node/outcome.h"
#include "words/settings.h"

namespace lumd {

class driver;

using lum_words::setting_id;

// The module holds ten times a value in 16 bits, and of a threshold 100 more in a second word.
inline constexpr int64_t module_scale = 10;
inline constexpr int64_t threshold_distance = 100;

// The values that fit.
struct setting_range {
  int64_t least = 0;
  int64_t most = std::numeric_limits<uint32_t>::max();
  const char *why = "";  // it ends where it does
};
inline constexpr setting_range any_value = {};
inline constexpr setting_range tenfold = {0, std::numeric_limits<uint16_t>::max() / module_scale,
                                          ": the module holds ten times that in 16 bits"};
inline constexpr setting_range threshold_range = {
    std::numeric_limits<int16_t>::min() / module_scale,
    (std::numeric_limits<int16_t>::max() - threshold_distance) / module_scale,
    ": the module holds ten times that, and 100 more, in 16 bits"};

struct setting {
  setting_id id;
  uint32_t lum_port_cfg::*field;
  uint32_t position;    // in the library's input record
  uint64_t change_bit;  // several settings may share one: they are taken over together
  setting_range range;

  constexpr std::string_view name() const { return name_of(lum_words::settings, id); }
  // Whether it has ever been set.
  bool is_set(const lum_port_cfg &in) const { return (in.changed_bits & change_bit) != 0; }
  int64_t value(const lum_port_cfg &in) const {
    const uint32_t raw = in.*field;
    return range.least < 0 ? static_cast<int32_t>(raw) : int64_t{raw};
  }
};

inline constexpr std::array<setting, lum_words::settings.size()> settings = {{
    {setting_id::threshold, &lum_port_cfg::threshold, LUM_HW_IN_THRESHOLD, LUM_CHANGE_THRESHOLD,
     threshold_range},
    {setting_id::p2_setting, &lum_port_cfg::p2_setting, LUM_HW_IN_P2_SETTING, LUM_CHANGE_P2_SETTING,
     tenfold},
    {setting_id::mode, &lum_port_cfg::mode, LUM_HW_IN_MODE, LUM_CHANGE_MODE, any_value},
    {setting_id::setting_a, &lum_port_cfg::setting_a, LUM_HW_IN_SETTING_A, LUM_CHANGE_SETTINGS,
     tenfold},
    {setting_id::setting_b, &lum_port_cfg::setting_b, LUM_HW_IN_SETTING_B, LUM_CHANGE_SETTINGS,
     tenfold},
    {setting_id::enable, &lum_port_cfg::enable_flag, LUM_HW_IN_ENABLE_FLAG, LUM_CHANGE_SETTINGS,
     any_value},
    {setting_id::sub1, &lum_port_cfg::sub1_flag, LUM_HW_IN_SUB1_FLAG, LUM_CHANGE_SETTINGS,
     any_value},
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
  wanted_settings asked;  // others may come along, for they are taken over together
  lum_port_cfg before = {};
  lum_port_cfg wanted = {};  // as it is to be
  lum_port_cfg stored = {};  // afterwards
};

// Refuses what a change refuses, and reports what it would change. Writes nothing and waits for
// nothing.
outcome<settings_report> rehearse_change(const lum_linux::port_description &port, uint32_t sub_port,
                                         const wanted_settings &wanted);

// What the library writes into a port's module from the making of this on.
class module_writing {
 public:
  module_writing(driver &node, uint32_t rsip);
  // All of it has reached the module so far, as far as transfers tell.
  bool has_reached() const;

 private:
  driver &node_;
  uint32_t rsip_;
  uint64_t failed_before_;
};

// Changes what is wanted of one sub-port, 0 or 1. Waits for the module, and up to `wait` for
// another change of the port. What is in force but not in the module or the store is not complete.
// Each setting that was asked for becomes an event; `by` is who asked, for people.
outcome<settings_report> change_settings(driver &node, const lum_linux::port_description &port,
                                         uint32_t sub_port, const wanted_settings &wanted,
                                         const std::string &by, std::chrono::milliseconds wait);

}  // namespace lumd
