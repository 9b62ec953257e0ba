// A port's settings at one moment: saved, in force and in the module.
#pragma once

#include <chrono>
#include <optional>

#include "lum_linux/node_description.h"
#include "node/held_settings.h"
#include "node/port_data.h"
#include "node/saved_settings.h"

namespace lumd {

struct settings_look {
  const lum_linux::port_description *port = nullptr;
  std::optional<port_copy> in_force;  // nothing for a port that the library does not know
  saved_settings saved;
  std::optional<held_settings> held;  // nothing unless the module was asked
};

// A setting's value in one of the places; nothing where it is not known or was never set.
std::optional<int64_t> value_in_force(const settings_look &at, uint32_t sub_port,
                                      const setting &setting);
std::optional<int64_t> value_saved(const settings_look &at, uint32_t sub_port,
                                   const setting &setting);

// Where a setting that is in force is known to be another.
bool saved_differs(const settings_look &at, uint32_t sub_port, const setting &setting);
bool held_differs(const settings_look &at, uint32_t sub_port, const setting &setting);

// The unit that the description gives it; empty when it gives none.
const std::string &unit_of(const lum_linux::setting_units &units, setting_id id);

}  // namespace lumd
