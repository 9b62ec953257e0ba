#include "alarm_tests.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <vector>

#include "action.h"
#include "alarm_view.h"
#include "alarms.h"
#include "driver.h"
#include "lum.h"
#include "lum_linux/services.h"
#include "port_data.h"

namespace lumd {
namespace {

constexpr uint32_t test_event_id = 100;
constexpr std::string_view name_prefix = "Ots";
constexpr std::size_t fields_of_text = 5;

struct readings_kind {
  std::string_view name;
  uint32_t test_id;
};
constexpr std::array<readings_kind, 5> readings_kinds = {
    {{"reading-3", 1}, {"power-1", 2}, {"power-0", 3}, {"reading-4", 4}, {"all", 5}}};

bool read_number(std::string_view text, int base, uint32_t &number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

bool read_name(std::string_view name, alarm_test_request &request) {
  if (name.size() >= LUM_IFNAME_SIZE || !name.starts_with(name_prefix)) return false;
  const auto parts = split(name.substr(name_prefix.size()), '_');
  std::array<uint32_t, 5> numbers = {};
  if (parts.size() != numbers.size()) return false;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (!read_number(parts[i], 10, numbers[i]) || numbers[i] > 0xFF) return false;
  }
  request.rsip = lum_linux::make_rsip(numbers[0], numbers[1], numbers[2], numbers[3]);
  request.sub_port = numbers[4];
  return true;
}

std::string ifname_of(const alarm_test_request &request) {
  const uint32_t rsip = request.rsip;
  return fmt::format("{}{}_{}_{}_{}_{}", name_prefix, rsip >> 24, rsip >> 16 & 0xFF,
                     rsip >> 8 & 0xFF, rsip & 0xFF, request.sub_port);
}

// Why the library would not act on the request, or nothing.
std::string reason_against(const alarm_test_request &request) {
  if (request.sub_port >= LUM_SUB_PORTS) {
    return fmt::format("a port has sub-ports 0 and 1, not {}", request.sub_port);
  }
  if (request.test == alarm_test::readings) {
    const bool known = std::any_of(readings_kinds.begin(), readings_kinds.end(),
                                   [&](const auto &kind) { return kind.test_id == request.id; });
    return known ? "" : fmt::format("there are no readings {}, expected 1 to 5", request.id);
  }
  if (request.id == every_alarm_test_id) return "";
  for (const alarm_kind &kind : alarm_kinds()) {
    if (kind.test_id != request.id) continue;
    if (belongs_to(kind, request.sub_port)) return "";
    return fmt::format("sub-port {} does not have the alarm {}", request.sub_port, kind.name);
  }
  return fmt::format("there is no alarm {} (0x{:x})", request.id, request.id);
}

// The test offsets that are set, as they are added to the module's words.
json show_offsets(const lum_test_injection &injection) {
  static constexpr std::array<std::string_view, 4> raised = {"reading-3", "reading-4", "power-1",
                                                             "power-0"};
  json shown = json::object();
  for (std::size_t i = 0; i < raised.size(); ++i) {
    const uint16_t offset = injection.pm_test_offsets[i];
    if (offset != 0) shown[std::string(raised[i])] = offset;
  }
  return shown;
}

// Without readings there is nothing to hand on yet.
void hand_on(driver &node, const port_copy &port, uint32_t rsip, uint32_t sub_port, json &reply) {
  const lum_sub_port_intf &controller = port.data.sub_port[sub_port];
  if (controller.created == 0 || port.data.inserted == 0 || !node.cages().has_readings(rsip)) {
    return conclude(reply, false, "it shows once the port's module has been polled");
  }
  const cerrno rc = lum_update_pm_ptah_data(controller.ifhandle);
  conclude(reply, CERR_IS_OK(rc), "it shows with the next polling cycle");
}

}  // namespace

std::optional<uint32_t> readings_test_id(std::string_view text) {
  for (const auto &[name, test_id] : readings_kinds) {
    if (text == name || text == fmt::format("{}", test_id)) return test_id;
  }
  return std::nullopt;
}

std::string to_text(const alarm_test_request &request) {
  return fmt::format("lumd#{}#{:x}#{:x}#{:x}", ifname_of(request),
                     static_cast<uint32_t>(request.test), request.id, request.on ? 1 : 0);
}

std::optional<alarm_test_request> read_alarm_test(const std::string &text, std::string &error) {
  alarm_test_request request;
  const auto fields = split(text, '#');
  if (fields.size() != fields_of_text) {
    error = "expected ANYTHING#INTERFACE#TEST#ID#STATUS";
    return std::nullopt;
  }
  if (!read_name(fields[1], request)) {
    error = fmt::format("\"{}\" is no interface name, expected one such as Ots0_1_0_3_1",
                        fields[1].substr(0, LUM_IFNAME_SIZE));
    return std::nullopt;
  }
  std::array<uint32_t, 3> numbers = {};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (read_number(fields[2 + i], 16, numbers[i])) continue;
    error = fmt::format("\"{}\" is no hexadecimal number of at most 8 digits",
                        fields[2 + i].substr(0, LUM_IFNAME_SIZE));
    return std::nullopt;
  }
  if (numbers[0] != 1 && numbers[0] != 2) {
    error = fmt::format("there is no test 0x{:x}, expected 1 (alarms) or 2 (readings)", numbers[0]);
    return std::nullopt;
  }
  request.test = static_cast<alarm_test>(numbers[0]);
  request.id = numbers[1];
  // An alarm is forced on by 1 alone, readings are raised by anything but 0.
  request.on = request.test == alarm_test::alarm ? numbers[2] == 1 : numbers[2] != 0;
  return request;
}

api_reply run_alarm_test(driver &node, const alarm_test_request &request, const std::string &text) {
  if (const auto reason = reason_against(request); !reason.empty()) return refuse(400, reason);
  const auto *port = node.node().find(request.rsip);
  if (port == nullptr || !copy_port(request.rsip)) {
    return refuse(404, fmt::format("there is no port with the interface {}", ifname_of(request)));
  }
  const cerrno rc = lum_linux::test_event_send(test_string[0], test_event_id, text);
  if (rc == ENOENT) return refuse(409, "lumd was started without --alarm-tests");
  const auto copy = copy_port(request.rsip);
  if (!copy) return refuse(409, fmt::format("port {} has been deleted meanwhile", port->name));
  const lum_test_injection &injection = copy->data.test[request.sub_port];
  json reply = {{"result", result_of(rc)},
                {"port", port->name},
                {"sub_port", request.sub_port},
                {"text", text},
                {"alarms", alarm_names(injection.test_alarm_bits)},
                {"offsets", show_offsets(injection)}};
  hand_on(node, *copy, request.rsip, request.sub_port, reply);
  return {200, std::move(reply)};
}

}  // namespace lumd
