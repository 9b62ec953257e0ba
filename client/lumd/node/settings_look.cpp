#include "node/settings_look.h"

namespace lumd {
namespace {

std::optional<int64_t> value_in(const lum_port_cfg &configuration, const setting &setting) {
  if (!setting.is_set(configuration)) return std::nullopt;
  return setting.value(configuration);
}

const held_setting *held_in(const settings_look &at, uint32_t sub_port, const setting &setting) {
  if (!at.held) return nullptr;
  const auto place = static_cast<std::size_t>(&setting - settings.data());
  return &at.held->of[sub_port][place];
}

}  // namespace

std::optional<int64_t> value_in_force(const settings_look &at, uint32_t sub_port,
                                      const setting &setting) {
  if (!at.in_force) return std::nullopt;
  return value_in(at.in_force->data.port_cfg[sub_port], setting);
}

std::optional<int64_t> value_saved(const settings_look &at, uint32_t sub_port,
                                   const setting &setting) {
  if (!at.saved.record) return std::nullopt;
  return value_in(at.saved.record->port_cfg[sub_port], setting);
}

bool saved_differs(const settings_look &at, uint32_t sub_port, const setting &setting) {
  return at.in_force && at.saved.known &&
         value_in_force(at, sub_port, setting) != value_saved(at, sub_port, setting);
}

bool held_differs(const settings_look &at, uint32_t sub_port, const setting &setting) {
  const held_setting *held = held_in(at, sub_port, setting);
  return held != nullptr && held->raw && value_in_force(at, sub_port, setting) &&
         !agrees(setting, at.in_force->data.port_cfg[sub_port], *held);
}

const std::string &unit_of(const lum_linux::setting_units &units, setting_id id) {
  static const std::string none;
  switch (id) {
    case setting_id::threshold:
      return units.threshold;
    case setting_id::p2_setting:
      return units.p2_setting;
    case setting_id::setting_a:
      return units.setting_a;
    case setting_id::setting_b:
      return units.setting_b;
    case setting_id::mode:
    case setting_id::enable:
    case setting_id::sub1:
      return none;
  }
  return none;
}

}  // namespace lumd
