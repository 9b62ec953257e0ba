// What can happen on a node: the names that `lumctl events` and `lumctl explain` know it by. What
// can be wrong, a finding, happens too: it begins under its own name and ends as "over".
#pragma once

#include "words/names.h"

namespace lum_words {

enum class event_id {
  alarm_cleared,
  batch_failed,
  batch_refused,
  batch_unanswered,
  driver_started,
  driver_stopped,
  events_lost,
  module_in,
  module_out,
  module_swapped,
  over,
  polling_late,
  port_state,
  ports_settled,
  setting_changed,
};

struct named_event {
  event_id id;
  std::string_view name;
};

inline constexpr std::array<named_event, 15> events = {{
    {event_id::alarm_cleared, "alarm-cleared"},
    {event_id::batch_failed, "batch-failed"},
    {event_id::batch_refused, "batch-refused"},
    {event_id::batch_unanswered, "batch-unanswered"},
    {event_id::driver_started, "driver-started"},
    {event_id::driver_stopped, "driver-stopped"},
    {event_id::events_lost, "events-lost"},
    {event_id::module_in, "module-in"},
    {event_id::module_out, "module-out"},
    {event_id::module_swapped, "module-swapped"},
    {event_id::over, "over"},
    {event_id::polling_late, "polling-late"},
    {event_id::port_state, "port-state"},
    {event_id::ports_settled, "ports-settled"},
    {event_id::setting_changed, "setting-changed"},
}};

}  // namespace lum_words
