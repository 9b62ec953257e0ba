// What can be wrong with a node, beside the states of its ports and their alarms: the names that
// `lumctl check` and `lumctl explain` know it by.
#pragma once

#include "words/names.h"

namespace lum_words {

enum class finding_id {
  alarm_raised,
  driver_stands,
  events_not_kept,
  led_broken,
  not_polled,
  never_polled,
  place_missing,
  settings_at_risk,
  store_unusable,
  trace_lost,
};

struct named_finding {
  finding_id id;
  std::string_view name;
};

inline constexpr std::array<named_finding, 10> findings = {{
    {finding_id::alarm_raised, "alarm-raised"},
    {finding_id::driver_stands, "driver-stands"},
    {finding_id::events_not_kept, "events-not-kept"},
    {finding_id::led_broken, "led-broken"},
    {finding_id::not_polled, "not-polled"},
    {finding_id::never_polled, "never-polled"},
    {finding_id::place_missing, "place-missing"},
    {finding_id::settings_at_risk, "settings-at-risk"},
    {finding_id::store_unusable, "store-unusable"},
    {finding_id::trace_lost, "trace-lost"},
}};

}  // namespace lum_words
