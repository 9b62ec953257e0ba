#include "node/settings.h"

#include <fmt/format.h>

#include <cstring>
#include <mutex>

#include "lum_linux/checkpoints.h"
#include "node/driver.h"
#include "node/port_data.h"

namespace lumd {
namespace {

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

// What the store has to say of a save that failed.
std::string reason_of_store(uint32_t rsip) {
  for (const auto &one : lum_linux::checkpoints_status().troubled) {
    if (one.key == rsip && one.trouble == lum_linux::record_trouble::unsaved) {
      return ": " + one.reason;
    }
  }
  return {};
}

refusal not_now(const std::string &reason) { return {refusal_kind::conflict, reason}; }

}  // namespace

module_writing::module_writing(driver &node, uint32_t rsip)
    : node_(node), rsip_(rsip), failed_before_(failed_transfers()) {}

bool module_writing::has_reached() const {
  const auto copy = copy_port(rsip_);
  return node_.node().rack == 0 && copy && copy->data.transceiver_disabled == 0 &&
         failed_transfers() == failed_before_;
}

uint64_t module_writing::failed_transfers() const {
  const auto status = node_.platform().modules().status(rsip_);
  return status ? status->statistics.failed : 0;
}

outcome<settings_report> change_settings(driver &node, const lum_linux::port_description &port,
                                         uint32_t sub_port, const wanted_settings &wanted,
                                         std::chrono::milliseconds wait) {
  const std::unique_lock turn(turn_of(port.rsip), wait);
  if (!turn) return not_now(fmt::format("another change of port {} is under way", port.name));
  const auto before = copy_port(port.rsip);
  if (!before) return not_now(fmt::format("port {} does not exist", port.name));
  if (is_going(*before)) return not_now(fmt::format("port {} is being deleted", port.name));
  const uint32_t ifhandle = before->data.sub_port[sub_port].ifhandle;
  if (!is_created(*before) || ifhandle == 0) {
    return not_now(fmt::format("the controllers of port {} are not confirmed yet", port.name));
  }

  uint64_t changed_bits = 0;
  for (const auto &[setting, value] : wanted) changed_bits |= setting->change_bit;
  const lum_hw_info_in record = make_record(before->data.port_cfg[sub_port], wanted, changed_bits);
  const module_writing writing(node, port.rsip);
  const cerrno rc = lum_set_hw_info_by_ifh(1, &ifhandle, &record, &changed_bits);
  const auto after = copy_port(port.rsip);
  if (!after) return not_now(fmt::format("port {} has been deleted meanwhile", port.name));

  settings_report report;
  report.rc = rc;
  if (!CERR_IS_OK(rc)) {
    report.missing = fmt::format("the settings are in force but not saved in {}: {} ({}){}",
                                 lum_linux::checkpoints_status().file.native(), cerr_strerror(rc),
                                 rc, reason_of_store(port.rsip));
  }
  report.ifhandle = ifhandle;
  report.change_bits = changed_bits;
  report.module_written = writing.has_reached();
  report.stored = after->data.port_cfg[sub_port];
  return report;
}

}  // namespace lumd
