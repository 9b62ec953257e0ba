// The library's alarm tests: alarms forced on and readings raised for one sub-port, asked for with
// a text that is sent to it as a test event.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lum.h"
#include "lum_linux/node_description.h"
#include "node/interface_names.h"
#include "node/outcome.h"

namespace lumd {

class driver;

enum class alarm_test : uint32_t { alarm = 1, readings = 2 };

struct alarm_test_request {
  controller_place place;
  alarm_test test = alarm_test::alarm;
  uint32_t id = 0;  // of the alarm, or of the readings
  bool on = false;
};

// The request as the library reads it.
std::string to_text(const alarm_test_request &request);

// Reads such a text strictly. Nothing with `error` saying what is wrong.
std::optional<alarm_test_request> read_alarm_test(const std::string &text, std::string &error);

struct alarm_test_report : action_report {
  const lum_linux::port_description *port = nullptr;
  lum_test_injection injected = {};  // all that is injected into the sub-port now
};

// Sends the text to the library and hands the outcome on to the alarm service. `request` is what
// the text says. Refused when the node has no such port, when the library knows no such test of the
// sub-port, and when the tests are not there.
outcome<alarm_test_report> run_alarm_test(driver &node, const alarm_test_request &request,
                                          const std::string &text);

}  // namespace lumd
