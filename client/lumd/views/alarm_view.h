// Alarms as the API shows them: those of sub-ports, from the alarm service's store, and those that
// are injected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "node/alarm_tests.h"
#include "node/port_data.h"
#include "views/json.h"

namespace lumd {

class driver;

// The names of the alarms in a bitmap, in the order of their bits; "bit-7" for one without a name.
json alarm_names(uint64_t bitmap);

// Those that a test had forced when the alarm service was told last.
json injected_alarms(driver &node, uint32_t ifhandle);

// Of a controller's alarms: "alarms_age_s", since the poll that the alarm service was told of last,
// and "waiting", while what it was told then has been cleared or overtaken. Null before the first.
json show_alarms_age(driver &node, uint32_t rsip, uint32_t ifhandle);

// The sub-ports with an alarm, or all that the alarm service knows, and every kind of alarm.
json show_alarms(driver &node, bool all);

// An alarm test that was sent to the library with the text.
json show_alarm_test(const alarm_test_report &report, const alarm_test_request &request,
                     const std::string &text);

}  // namespace lumd
