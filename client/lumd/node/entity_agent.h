// Does to the library what an entity agent does.
#pragma once

#include <cstdint>
#include <string_view>

#include "lum_linux/services.h"
#include "node/outcome.h"

namespace lumd {

struct agent_report : action_report {
  uint32_t replay_required = 0;  // the library's bitmap
  bool resync_complete = false;
  bool served = false;  // the entry was answered; of a batch
};

// Hands the library a batch of one entry. `entry` is one that reason_against_interface has nothing
// against. Waits for the provisioning lock.
agent_report run_agent_batch(lum_linux::ea_operation operation, const lum_linux::ea_entry &entry);

// Tells the library that an agent has connected.
agent_report connect_agent();

}  // namespace lumd
