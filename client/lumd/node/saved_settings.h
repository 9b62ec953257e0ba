// What the checkpoint store holds of a port's settings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "lum.h"

namespace lumd {

struct saved_settings {
  bool known = false;
  std::optional<lum_chkpt_record> record;  // nothing when none is saved
  std::string reason;                      // why it is not known; else empty
};

saved_settings not_known(const std::string &reason);

// Waits for the disk.
saved_settings read_saved(uint32_t rsip);

}  // namespace lumd
