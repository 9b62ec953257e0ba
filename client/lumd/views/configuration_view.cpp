#include "views/configuration_view.h"

#include <nlohmann/json.hpp>
#include <string>

#include "json/object.h"
#include "node/settings_look.h"

namespace lumd {
namespace {

using lum_client::object;

json value_or_null(const std::optional<int64_t> &value) {
  return value ? json(*value) : json(nullptr);
}

json value_or_reason(const std::optional<int64_t> &value, const std::string &reason) {
  json shown = object({{"value", value_or_null(value)}});
  if (!value) shown["reason"] = reason;
  return shown;
}

json show_in_force(const settings_look &at, uint32_t sub_port, const setting &setting) {
  return value_or_reason(value_in_force(at, sub_port, setting),
                         at.in_force ? "never set" : "the port does not exist");
}

json show_saved(const settings_look &at, uint32_t sub_port, const setting &setting) {
  const std::string reason = at.saved.known ? "nothing is saved" : at.saved.reason;
  return value_or_reason(value_saved(at, sub_port, setting), reason);
}

json show_held(const held_setting &held, bool has_register) {
  json shown = object({{"value", nullptr}, {"register", nullptr}});
  if (!has_register) shown["exists"] = false;
  if (held.value) shown["value"] = *held.value;
  if (held.raw) shown["register"] = *held.raw;
  if (held.upper) shown["upper_register"] = *held.upper;
  if (!held.raw) shown["reason"] = held.reason;
  return shown;
}

// Those of "saved" and "module" that are known and not what is in force.
json show_differences(const settings_look &at, uint32_t sub_port, const setting &setting) {
  json shown = json::array();
  if (saved_differs(at, sub_port, setting)) shown.push_back("saved");
  if (held_differs(at, sub_port, setting)) shown.push_back("module");
  return shown;
}

// Nothing when the store cannot say it of a setting that is not in force.
json is_never_set(const settings_look &at, uint32_t sub_port, const setting &setting) {
  if (value_in_force(at, sub_port, setting) || value_saved(at, sub_port, setting)) return false;
  return at.saved.known ? json(true) : json(nullptr);
}

json show_setting(const settings_look &at, const lum_linux::setting_units &units, uint32_t sub_port,
                  std::size_t place) {
  const setting &setting = settings[place];
  const std::string &unit = unit_of(units, setting.id);
  json shown = object({{"name", setting.name()},
                       {"unit", unit.empty() ? json(nullptr) : json(unit)},
                       {"saved", show_saved(at, sub_port, setting)},
                       {"in_force", show_in_force(at, sub_port, setting)}});
  if (at.held)
    shown["module"] = show_held(at.held->of[sub_port][place], has_register(setting.id, sub_port));
  shown["differs"] = show_differences(at, sub_port, setting);
  shown["never_set"] = is_never_set(at, sub_port, setting);
  return shown;
}

}  // namespace

json show_configuration(const lum_port_cfg &configuration, bool saved_are_known) {
  json shown = json::object();
  json changed = json::array();
  for (const setting &setting : settings) {
    const std::string name = lum_words::member_of(setting.name());
    shown[name] = nullptr;
    if (!setting.is_set(configuration)) continue;
    changed.push_back(name);
    shown[name] = setting.value(configuration);
  }
  shown["changed_bits"] = configuration.changed_bits;
  shown["changed"] = std::move(changed);
  shown["changed_known"] = saved_are_known;
  return shown;
}

json show_changes(const settings_report &report) {
  json shown = json::array();
  for (const setting &setting : settings) {
    if ((report.change_bits & setting.change_bit) == 0) continue;
    const bool was_set = setting.is_set(report.before);
    const int64_t old = setting.value(report.before);
    const int64_t value = setting.value(report.wanted);
    const bool is_asked = report.asked.contains(&setting);
    if (!is_asked && was_set && old == value) continue;
    shown.push_back(object({{"name", setting.name()},
                            {"old", was_set ? json(old) : json(nullptr)},
                            {"new", value},
                            {"asked", is_asked}}));
  }
  return shown;
}

json show_settings(const settings_look &at, const lum_linux::setting_units &units) {
  json sub_ports = json::array();
  for (uint32_t sub_port = 0; sub_port < LUM_SUB_PORTS; ++sub_port) {
    json shown = json::array();
    for (std::size_t i = 0; i < settings.size(); ++i) {
      shown.push_back(show_setting(at, units, sub_port, i));
    }
    sub_ports.push_back(object({{"sub_port", sub_port}, {"settings", std::move(shown)}}));
  }
  return object({{"name", at.port->name}, {"sub_ports", std::move(sub_ports)}});
}

json show_dropped(const settings_look &at) {
  json shown = json::array();
  for (uint32_t sub_port = 0; sub_port < LUM_SUB_PORTS; ++sub_port) {
    json dropped = json::object();
    for (const setting &setting : settings) {
      const auto in_force = value_in_force(at, sub_port, setting);
      const auto value = in_force ? in_force : value_saved(at, sub_port, setting);
      if (value) dropped[lum_words::member_of(setting.name())] = *value;
    }
    if (dropped.empty()) continue;
    shown.push_back(object(
        {{"port", at.port->name}, {"sub_port", sub_port}, {"settings", std::move(dropped)}}));
  }
  return shown;
}

}  // namespace lumd
