// The library's alarm tests: alarms forced on and readings raised for one sub-port, asked for with
// a text that is sent to it as a test event.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "router.h"

namespace lumd {

enum class alarm_test : uint32_t { alarm = 1, readings = 2 };

struct alarm_test_request {
  uint32_t rsip = 0;
  uint32_t sub_port = 0;
  alarm_test test = alarm_test::alarm;
  uint32_t id = 0;  // of the alarm, or of the readings
  bool on = false;
};

// What to raise: "reading-3", "power-1", "power-0", "reading-4" or "all", or their numbers 1 to 5.
std::optional<uint32_t> readings_test_id(std::string_view text);

// The request as the library reads it.
std::string to_text(const alarm_test_request &request);

// Reads such a text strictly. Nothing with `error` saying what is wrong.
std::optional<alarm_test_request> read_alarm_test(const std::string &text, std::string &error);

// Sends the text to the library and hands the outcome on to the alarm service. `request` is what
// the text says. Refused when the node has no such port, when the library knows no such test of the
// sub-port, and when the tests are not there.
api_reply run_alarm_test(driver &node, const alarm_test_request &request, const std::string &text);

}  // namespace lumd
