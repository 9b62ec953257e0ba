#include "views/configuration_view.h"

#include <nlohmann/json.hpp>
#include <string>

#include "node/settings.h"

namespace lumd {

json show_configuration(const lum_port_cfg &configuration, bool saved_are_known) {
  json shown = json::object();
  json changed = json::array();
  for (const setting &setting : settings) {
    const std::string name = lum_words::member_of(setting.name());
    shown[name] = nullptr;
    if ((configuration.changed_bits & setting.change_bit) == 0) continue;
    changed.push_back(name);
    const uint32_t value = configuration.*setting.field;
    if (setting.is_signed) {
      shown[name] = static_cast<int32_t>(value);
    } else {
      shown[name] = value;
    }
  }
  shown["changed_bits"] = configuration.changed_bits;
  shown["changed"] = std::move(changed);
  shown["changed_known"] = saved_are_known;
  return shown;
}

}  // namespace lumd
