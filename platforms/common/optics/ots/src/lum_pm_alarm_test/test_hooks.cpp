// An operator's test event forces alarms on, or readings up, for one sub-port:
// <anything>#Ots<rack>_<slot>_<instance>_<port>_<sub-port>#<test>#<alarm>#<status>.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <iterator>
#include <optional>
#include <string_view>

#include "base/shared.h"
#include "base/trace.h"
#include "lum_ports_db/lum_ports_db.h"
#include "test_event.h"

using namespace lum;

static constexpr char trace_area[] = "lum_pm_alarm_test";

char test_string[4][40] = {"test_suite_0", "test_suite_1", "test_suite_2", "test_suite_3"};

namespace {

constexpr test_event_record test_records[] = {{100, lum_ots_test_alarms_pm}};

struct test_request {
  char name[LUM_IFNAME_SIZE];
  bool names_a_port;  // its numbers could be read in full; else those that could not are 0
  std::uint32_t rack, slot, instance, port, sub_port;
  std::uint32_t test, alarm, status;
};

std::optional<test_request> parse(const char *text);
void inject_alarm(lum_test_injection &injection, const test_request &request);
void offset_readings(lum_test_injection &injection, const test_request &request);

}  // namespace

cerrno lum_pm_alarm_test_init(std::uint64_t, std::uint32_t suite) {
  if (suite >= std::size(test_string)) return EINVAL;
  test_event_init_tests_v2(test_string[suite], 0, lum_get_ctx()->evm, test_records,
                           std::size(test_records));
  return 0;
}

void lum_pm_alarm_test_cleanup(std::uint32_t suite) {
  if (suite < std::size(test_string)) test_event_close_tests(test_string[suite]);
}

void lum_ots_test_alarms_pm(void *, const char *text) {
  const std::optional<test_request> request = parse(text);
  if (!request) {
    LUM_ERROR(71, "Invalid inputs \n");
    return;
  }
  LUM_INFO(72, "intf-name[%s] test[%d] alarm-id[%d] status[%d] RSIP[%d:%d:%d:%d:%d] \n",
           request->name, request->test, request->alarm, request->status, request->rack,
           request->slot, request->instance, request->port, request->sub_port);
  const std::uint32_t rsip =
      pack_rsip(request->rack, request->slot, request->instance, request->port);
  ports_reader reader;
  lum_port_node_info *node = request->names_a_port ? find_port(rsip) : nullptr;
  if (node == nullptr) {
    LUM_ERROR(73, "Invalid inputs \n");
    return;
  }
  LUM_INFO(74, "Port Found for rsip=0x%x test id %d \n", rsip, request->test);
  if (request->sub_port >= LUM_SUB_PORTS) return;
  lum_test_injection &injection = node->data.test[request->sub_port];
  if (request->test == 1) inject_alarm(injection, *request);
  if (request->test == 2) offset_readings(injection, *request);
}

namespace {

// Takes the text up to the next '#', or all of it.
std::string_view take_field(std::string_view &rest) {
  const std::size_t end = rest.find('#');
  const std::string_view field = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return field;
}

bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Reads the five numbers that stand behind "Ots", an underscore between them, as scanf reads them:
// blanks and a sign may stand before each. What follows the last one does not matter. Returns
// whether the name is of that kind at all.
bool parse_name(std::string_view name, test_request &request) {
  constexpr std::string_view kind = "Ots";
  const std::size_t start = name.find(kind);
  if (start == std::string_view::npos) return false;
  const char *at = name.data() + start + kind.size();
  const char *const name_end = name.data() + name.size();
  std::uint32_t *const numbers[] = {&request.rack, &request.slot, &request.instance, &request.port,
                                    &request.sub_port};
  for (std::uint32_t *number : numbers) {
    if (number != numbers[0] && (at == name_end || *at++ != '_')) return true;
    at = std::find_if_not(at, name_end, is_blank);
    if (name_end - at > 1 && *at == '+' && at[1] != '-') ++at;
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(at, name_end, value);
    if (error != std::errc() || value < INT32_MIN || value > UINT32_MAX) return true;
    *number = static_cast<std::uint32_t>(value);
    at = end;
  }
  request.names_a_port = true;
  return true;
}

// The last number of a text ends where its digits end; what follows does not matter.
enum class ending { exact, open };

// A hexadecimal number as scanf reads it: blanks around it and 0x in front of it do not matter.
bool to_hexadecimal(std::string_view text, ending last, std::uint32_t &number) {
  constexpr std::string_view blanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  text = text.substr(0, text.find_last_not_of(blanks) + 1);
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
  return error == std::errc() && (last == ending::open || end == text.data() + text.size());
}

// Nothing for a text of any other form.
std::optional<test_request> parse(const char *text) {
  if (text == nullptr) return std::nullopt;
  std::string_view rest = text;
  if (rest.find('#') == std::string_view::npos) return std::nullopt;
  take_field(rest);
  const std::string_view name = take_field(rest);
  test_request request = {};
  if (name.size() >= sizeof request.name || !parse_name(name, request)) return std::nullopt;
  name.copy(request.name, name.size());
  if (!to_hexadecimal(take_field(rest), ending::exact, request.test) ||
      !to_hexadecimal(take_field(rest), ending::exact, request.alarm) ||
      !to_hexadecimal(take_field(rest), ending::open, request.status)) {
    return std::nullopt;
  }
  return request;
}

std::uint64_t bits_of_alarm(std::uint32_t alarm, bool is_sub_port_1) {
  constexpr std::uint64_t common = LUM_ALARM_FLAG_12 | LUM_ALARM_FLAG_10 | LUM_ALARM_FLAG_13 |
                                   LUM_ALARM_FLAG_64_HIGH | LUM_ALARM_FLAG_64_LOW;
  constexpr std::uint64_t of_sub_port_1 = LUM_ALARM_FLAG_49_A | LUM_ALARM_FLAG_49_B;
  switch (alarm) {
    case 10:
      return LUM_ALARM_FLAG_10;
    case 12:
      return LUM_ALARM_FLAG_12;
    case 17:
      return LUM_ALARM_FLAG_13;
    case 18:
      return LUM_ALARM_FLAG_64_HIGH;
    case 19:
      return LUM_ALARM_FLAG_64_LOW;
    case 20:
      return is_sub_port_1 ? LUM_ALARM_FLAG_49_A : 0;
    case 21:
      return is_sub_port_1 ? LUM_ALARM_FLAG_49_B : 0;
    case 22:
      return is_sub_port_1 ? common | of_sub_port_1 : common;
    default:
      return 0;
  }
}

void inject_alarm(lum_test_injection &injection, const test_request &request) {
  const std::uint64_t bits = bits_of_alarm(request.alarm, request.sub_port != 0);
  if (request.status == 1) {
    shared_or(injection.test_alarm_bits, bits);
  } else {
    shared_and(injection.test_alarm_bits, ~bits);
  }
}

void offset_readings(lum_test_injection &injection, const test_request &request) {
  struct reading_offset {
    std::uint32_t alarm;
    std::size_t offset;
    std::uint16_t value;
  };
  constexpr reading_offset offsets[] = {{1, 0, 100}, {2, 2, 500}, {3, 3, 500}, {4, 1, 500}};
  constexpr std::uint32_t all = 5;
  for (const reading_offset &o : offsets) {
    if (request.alarm != o.alarm && request.alarm != all) continue;
    shared_store(injection.pm_test_offsets[o.offset], request.status != 0 ? o.value : 0);
  }
}

}  // namespace
