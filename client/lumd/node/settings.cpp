#include "node/settings.h"

#include <fmt/format.h>

#include <cstring>
#include <mutex>
#include <optional>

#include "lum_linux/checkpoints.h"
#include "node/driver.h"
#include "node/held_settings.h"
#include "node/port_data.h"
#include "words/events.h"

namespace lumd {
namespace {

using lum_linux::port_description;

// The turns of those who change one port: settings that are taken over together are completed from
// what is stored.
std::timed_mutex &turn_of(uint32_t rsip) {
  static std::mutex mutex;
  static std::map<uint32_t, std::timed_mutex> turns;
  std::lock_guard lock(mutex);
  return turns[rsip];
}

// What is stored, with what is wanted in its place.
lum_port_cfg completed(lum_port_cfg stored, const wanted_settings &wanted, uint64_t changed_bits) {
  for (const auto &[setting, value] : wanted) stored.*setting->field = value;
  stored.changed_bits |= changed_bits;
  return stored;
}

lum_hw_info_in make_record(const lum_port_cfg &wanted, uint64_t changed_bits) {
  lum_hw_info_in record = {};
  for (const setting &setting : settings) {
    if ((changed_bits & setting.change_bit) == 0) continue;
    const uint32_t value = wanted.*setting.field;
    std::memcpy(reinterpret_cast<unsigned char *>(&record) + setting.position, &value,
                sizeof value);
  }
  return record;
}

uint64_t failed_transfers(driver &node, uint32_t rsip) {
  const auto status = node.platform().modules().status(rsip);
  return status ? status->statistics.failed : 0;
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

// Whether the module's registers hold what was written; nothing when one of them is not known.
std::optional<bool> is_held(const held_settings &held, uint32_t sub_port,
                            const lum_port_cfg &stored, uint64_t changed_bits) {
  for (std::size_t i = 0; i < settings.size(); ++i) {
    const bool is_written =
        (changed_bits & settings[i].change_bit) != 0 && has_register(settings[i].id, sub_port);
    if (!is_written) continue;
    const held_setting &one = held.of[sub_port][i];
    if (!one.raw) return std::nullopt;
    if (!agrees(settings[i], stored, one)) return false;
  }
  return true;
}

// Why the module does not have what was written; empty when it does. A transfer that failed may
// have been repeated with success, so what the module holds counts for more.
std::string reason_of_module(driver &node, const port_description &port, const port_copy &after,
                             uint32_t sub_port, const settings_report &report,
                             uint64_t failed_before) {
  if (node.node().rack != 0) return "the library reaches no module in this rack";
  if (after.data.transceiver_disabled != 0) return "the library takes the cage for empty";
  const held_settings held = read_held(node, port);
  const auto is_there = is_held(held, sub_port, report.stored, report.change_bits);
  if (is_there) return *is_there ? "" : "it holds something else after they were written";
  return failed_transfers(node, port.rsip) == failed_before ? "" : "a transfer to it failed";
}

std::string join(const std::string &first, const std::string &second) {
  return first.empty() || second.empty() ? first + second : first + "; " + second;
}

refusal not_now(const std::string &reason) { return {refusal_kind::conflict, reason}; }

// Why a port cannot be changed now; empty when it can.
std::string reason_against(const port_description &port, const std::optional<port_copy> &copy,
                           uint32_t sub_port) {
  if (!copy) return fmt::format("port {} does not exist", port.name);
  if (is_going(*copy)) return fmt::format("port {} is being deleted", port.name);
  if (!is_created(*copy) || copy->data.sub_port[sub_port].ifhandle == 0) {
    return fmt::format("the controllers of port {} are not confirmed yet", port.name);
  }
  return {};
}

void tell(driver &node, const port_description &port, uint32_t sub_port,
          const settings_report &report, const std::string &by) {
  const bool saved = CERR_IS_OK(report.rc);
  for (const auto &[setting, value] : report.asked) {
    const int64_t now = setting->value(report.stored);
    const bool was_set = setting->is_set(report.before);
    event told;
    told.kind = name_of(lum_words::events, lum_words::event_id::setting_changed);
    told.how_bad = saved && report.module_written ? severity::ok : severity::warning;
    told.port = port.name;
    told.sub_port = sub_port;
    told.text =
        fmt::format("{} {}, was {}, by {}{}{}", setting->name(), now,
                    was_set ? fmt::format("{}", setting->value(report.before)) : "never set", by,
                    saved ? "" : "; not saved", report.module_written ? "" : "; not in the module");
    told.details = {{"setting", std::string(setting->name())},
                    {"new", now},
                    {"by", by},
                    {"saved", saved},
                    {"module_written", report.module_written}};
    if (was_set) told.details.emplace_back("old", int64_t{setting->value(report.before)});
    node.events().add(std::move(told),
                      fmt::format("setting {}:{} {}", port.name, sub_port, setting->name()));
  }
}

}  // namespace

outcome<settings_report> rehearse_change(const port_description &port, uint32_t sub_port,
                                         const wanted_settings &wanted) {
  const auto before = copy_port(port.rsip);
  if (const auto why = reason_against(port, before, sub_port); !why.empty()) return not_now(why);
  settings_report report;
  for (const auto &[setting, value] : wanted) report.change_bits |= setting->change_bit;
  report.asked = wanted;
  report.ifhandle = before->data.sub_port[sub_port].ifhandle;
  report.before = report.stored = before->data.port_cfg[sub_port];
  report.wanted = completed(report.before, wanted, report.change_bits);
  return report;
}

module_writing::module_writing(driver &node, uint32_t rsip)
    : node_(node), rsip_(rsip), failed_before_(failed_transfers(node, rsip)) {}

bool module_writing::has_reached() const {
  const auto copy = copy_port(rsip_);
  return node_.node().rack == 0 && copy && copy->data.transceiver_disabled == 0 &&
         failed_transfers(node_, rsip_) == failed_before_;
}

outcome<settings_report> change_settings(driver &node, const port_description &port,
                                         uint32_t sub_port, const wanted_settings &wanted,
                                         const std::string &by, std::chrono::milliseconds wait) {
  const std::unique_lock turn(turn_of(port.rsip), wait);
  if (!turn) return not_now(fmt::format("another change of port {} is under way", port.name));
  const auto planned = rehearse_change(port, sub_port, wanted);
  if (!planned) return planned;
  settings_report report = *planned;
  const lum_hw_info_in record = make_record(report.wanted, report.change_bits);
  const uint64_t failed_before = failed_transfers(node, port.rsip);
  report.rc = lum_set_hw_info_by_ifh(1, &report.ifhandle, &record, &report.change_bits);
  const auto after = copy_port(port.rsip);
  if (!after) return not_now(fmt::format("port {} has been deleted meanwhile", port.name));
  report.stored = after->data.port_cfg[sub_port];
  if (!CERR_IS_OK(report.rc)) {
    report.missing = fmt::format("the settings are in force but not saved in {}: {} ({}){}",
                                 lum_linux::checkpoints_status().file.native(),
                                 cerr_strerror(report.rc), report.rc, reason_of_store(port.rsip));
  }
  const std::string unwritten =
      reason_of_module(node, port, *after, sub_port, report, failed_before);
  report.module_written = unwritten.empty();
  if (!report.module_written) {
    report.missing = join(
        report.missing,
        fmt::format("the settings have not reached the module: {}; \"lumctl port update {} up\" "
                    "writes them again",
                    unwritten, port.name));
  }
  tell(node, port, sub_port, report, by);
  return report;
}

}  // namespace lumd
