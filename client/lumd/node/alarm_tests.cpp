#include "node/alarm_tests.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <charconv>

#include "lum_linux/services.h"
#include "node/alarms.h"
#include "node/driver.h"
#include "node/polling_halt.h"
#include "node/port_snapshot.h"
#include "node/readings.h"
#include "node/split.h"

namespace lumd {
namespace {

constexpr uint32_t test_event_id = 100;
constexpr std::size_t fields_of_text = 5;

bool read_hexadecimal(std::string_view text, uint32_t &number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  return error == std::errc() && end == text.data() + text.size();
}

// Why the library would not act on the request, or nothing.
std::string reason_against(const alarm_test_request &request) {
  const uint32_t sub_port = request.place.sub_port;
  if (sub_port >= LUM_SUB_PORTS) {
    return fmt::format("a port has sub-ports 0 and 1, not {}", sub_port);
  }
  if (request.test == alarm_test::readings) {
    return is_readings_test(request.id)
               ? ""
               : fmt::format("there are no readings {}, expected {} to {}", request.id,
                             lum_words::first_readings_test_id, lum_words::every_readings_test_id);
  }
  if (request.id == lum_words::every_alarm_test_id) return "";
  for (const lum_words::alarm &alarm : lum_words::alarms) {
    if (alarm.test_id != request.id) continue;
    if (belongs_to(alarm, sub_port)) return "";
    return fmt::format("sub-port {} does not have the alarm {}", sub_port, alarm.name);
  }
  return fmt::format("there is no alarm {} (0x{:x})", request.id, request.id);
}

// Without readings there is nothing to hand on yet, and what was polled long ago is no sample of
// now. Returns what is missing.
std::string hand_on(driver &node, const lum_linux::port_description &port,
                    const controller_place &place) {
  const port_snapshot at = look_at(node, port);
  if (const auto halt = halt_of(node)) {
    return "it shows once the port's module is polled again: " + halt->reason;
  }
  if (at.state != port_state::up || !at.polled) {
    return "it shows once the port's module has been polled" +
           (at.reason.empty() ? "" : ": " + at.reason);
  }
  const cerrno rc = node.feed().hand_on_for_test(*at.copy, place.sub_port, *at.polled);
  return CERR_IS_OK(rc) ? "" : "it shows with the next polling cycle";
}

}  // namespace

std::string to_text(const alarm_test_request &request) {
  return fmt::format("lumd#{}#{:x}#{:x}#{:x}", interface_name(request.place),
                     static_cast<uint32_t>(request.test), request.id, request.on ? 1 : 0);
}

std::optional<alarm_test_request> read_alarm_test(const std::string &text, std::string &error) {
  alarm_test_request request;
  const auto fields = split(text, '#');
  if (fields.size() != fields_of_text) {
    error = "expected ANYTHING#INTERFACE#TEST#ID#STATUS";
    return std::nullopt;
  }
  const auto place = read_interface_name(fields[1]);
  if (!place) {
    error = fmt::format("\"{}\" is no interface name, expected one such as Ots0_1_0_3_1",
                        fields[1].substr(0, LUM_IFNAME_SIZE));
    return std::nullopt;
  }
  std::array<uint32_t, 3> numbers = {};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (read_hexadecimal(fields[2 + i], numbers[i])) continue;
    error = fmt::format("\"{}\" is no hexadecimal number of at most 8 digits",
                        fields[2 + i].substr(0, LUM_IFNAME_SIZE));
    return std::nullopt;
  }
  if (numbers[0] != 1 && numbers[0] != 2) {
    error = fmt::format("there is no test 0x{:x}, expected 1 (alarms) or 2 (readings)", numbers[0]);
    return std::nullopt;
  }
  request.place = *place;
  request.test = static_cast<alarm_test>(numbers[0]);
  request.id = numbers[1];
  // An alarm is forced on by 1 alone, readings are raised by anything but 0.
  request.on = request.test == alarm_test::alarm ? numbers[2] == 1 : numbers[2] != 0;
  return request;
}

outcome<alarm_test_report> run_alarm_test(driver &node, const alarm_test_request &request,
                                          const std::string &text) {
  if (const auto reason = reason_against(request); !reason.empty()) {
    return refusal{refusal_kind::wrong, reason};
  }
  const uint32_t rsip = request.place.rsip;
  const auto *port = node.node().find(rsip);
  if (port == nullptr || !copy_port(rsip)) {
    return refusal{refusal_kind::unknown, fmt::format("there is no port with the interface {}",
                                                      interface_name(request.place))};
  }
  const auto held = node.feed().hold();
  const cerrno rc = lum_linux::test_event_send(test_string[0], test_event_id, text);
  if (rc == ENOENT) {
    return refusal{refusal_kind::conflict, "lumd was started without --alarm-tests"};
  }
  const auto copy = copy_port(rsip);
  if (!copy) {
    return refusal{refusal_kind::conflict,
                   fmt::format("port {} has been deleted meanwhile", port->name)};
  }
  alarm_test_report report;
  report.rc = rc;
  report.port = port;
  report.injected = copy->data.test[request.place.sub_port];
  report.missing = hand_on(node, *port, request.place);
  return report;
}

}  // namespace lumd
