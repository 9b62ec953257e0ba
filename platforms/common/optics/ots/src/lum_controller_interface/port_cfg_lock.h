#pragma once

#include "base/quiet_lock.h"

namespace lum {

// Held for the moment in which a port's configuration is changed or copied, so that a saved record
// holds whole changes only, also while the other sub-port is being changed.
inline quiet_lock port_cfg_lock;

}  // namespace lum
