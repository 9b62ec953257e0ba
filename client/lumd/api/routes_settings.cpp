#include <fmt/format.h>

#include <cstring>
#include <limits>
#include <map>
#include <mutex>

#include "action.h"
#include "configuration.h"
#include "driver.h"
#include "find_port.h"
#include "lum.h"
#include "lum_linux/modules.h"
#include "port_data.h"
#include "request_body.h"
#include "routes.h"

namespace lumd {
namespace {

constexpr std::chrono::seconds bound(5);

// What a request asks for: the settings of lumd::settings that it names.
using wanted_settings = std::map<const setting *, uint32_t>;

wanted_settings read_settings(request_body &body) {
  wanted_settings wanted;
  for (const setting &setting : settings) {
    const json *value = body.member(setting.name);
    if (value == nullptr) continue;
    const int64_t least = setting.is_signed ? std::numeric_limits<int32_t>::min() : 0;
    constexpr int64_t most = std::numeric_limits<uint32_t>::max();
    const bool is_whole = value->is_number_integer() &&
                          !(value->is_number_unsigned() && value->get<uint64_t>() > uint64_t{most});
    const int64_t number = is_whole ? value->get<int64_t>() : -1;
    if (!is_whole || number < least || number > most) {
      body.complain(
          fmt::format("\"{}\" is not a whole number from {} to {}", setting.name, least, most));
    }
    wanted[&setting] = static_cast<uint32_t>(number);
  }
  return wanted;
}

// The turns of those who change one port: settings that are taken over together are completed from
// what is stored.
std::timed_mutex &turn_of(uint32_t rsip) {
  static std::mutex mutex;
  static std::map<uint32_t, std::timed_mutex> turns;
  std::lock_guard lock(mutex);
  return turns[rsip];
}

lum_hw_info_in make_record(const lum_port_cfg &stored, const wanted_settings &wanted,
                           uint64_t changed_bits) {
  lum_hw_info_in record = {};
  for (const setting &setting : settings) {
    if ((changed_bits & setting.change_bit) == 0) continue;
    const auto given = wanted.find(&setting);
    const uint32_t value = given == wanted.end() ? stored.*setting.field : given->second;
    std::memcpy(reinterpret_cast<unsigned char *>(&record) + setting.position, &value,
                sizeof value);
  }
  return record;
}

uint64_t failed_transfers(driver &node, uint32_t rsip) {
  const auto status = node.platform().modules().last_status(rsip);
  return status ? status->statistics.failed : 0;
}

api_reply change_settings(driver &node, const lum_linux::port_description &port, uint32_t sub_port,
                          const wanted_settings &wanted) {
  const std::unique_lock turn(turn_of(port.rsip), bound / 2);
  if (!turn) return refuse(409, fmt::format("another change of port {} is under way", port.name));
  const auto before = copy_port(port.rsip);
  if (!before) return refuse(409, fmt::format("port {} does not exist", port.name));
  if (is_going(*before)) return refuse(409, fmt::format("port {} is being deleted", port.name));
  const uint32_t ifhandle = before->data.sub_port[sub_port].ifhandle;
  if (!is_created(*before) || ifhandle == 0) {
    return refuse(409, fmt::format("the controllers of port {} are not confirmed yet", port.name));
  }

  uint64_t changed_bits = 0;
  for (const auto &[setting, value] : wanted) changed_bits |= setting->change_bit;
  const lum_hw_info_in record = make_record(before->data.port_cfg[sub_port], wanted, changed_bits);
  const uint64_t failed_before = failed_transfers(node, port.rsip);
  const cerrno rc = lum_set_hw_info_by_ifh(1, &ifhandle, &record, &changed_bits);
  const auto after = copy_port(port.rsip);
  if (!after) return refuse(409, fmt::format("port {} has been deleted meanwhile", port.name));

  const bool reached =
      after->data.transceiver_disabled == 0 && failed_transfers(node, port.rsip) == failed_before;
  json reply = {{"result", result_of(rc)},
                {"name", port.name},
                {"sub_port", sub_port},
                {"ifhandle", ifhandle},
                {"change_bits", changed_bits},
                {"module_written", reached},
                {"stored", show_configuration(after->data.port_cfg[sub_port])}};
  conclude(reply, CERR_IS_OK(rc),
           fmt::format("the settings are in force but not saved: {} ({})", cerr_strerror(rc), rc));
  return {200, std::move(reply)};
}

api_reply post_settings(driver &node, const api_request &request) {
  const auto *port = find_port(node, request.parameters[0]);
  if (port == nullptr) return refuse_unknown_port(request.parameters[0]);
  request_body body(request.body);
  const uint32_t sub_port = body.optional_number("sub_port", 0, LUM_SUB_PORTS - 1).value_or(0);
  const wanted_settings wanted = read_settings(body);
  if (wanted.empty()) body.complain("there is no setting in the body");
  if (const auto wrong = body.wrong(); !wrong.empty()) return refuse(400, wrong);
  return act(bound, [&node, port, sub_port, wanted] {
    return change_settings(node, *port, sub_port, wanted);
  });
}

constexpr route routes[] = {
    {"POST", "/v1/ports/{}/settings", post_settings},
};

}  // namespace

std::span<const route> settings_routes() { return routes; }

}  // namespace lumd
