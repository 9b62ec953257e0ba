// The settings of a sub-port.
#pragma once

#include "words/names.h"

namespace lum_words {

enum class setting_id { threshold, p2_setting, mode, setting_a, setting_b, enable, sub1 };

struct setting {
  setting_id id;
  std::string_view name;
};

inline constexpr std::array<setting, 7> settings = {{
    {setting_id::threshold, "threshold"},
    {setting_id::p2_setting, "p2-setting"},
    {setting_id::mode, "mode"},
    {setting_id::setting_a, "setting-a"},
    {setting_id::setting_b, "setting-b"},
    {setting_id::enable, "enable"},
    {setting_id::sub1, "sub1"},
}};

}  // namespace lum_words
