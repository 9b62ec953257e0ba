// What the files of this area share.
#pragma once

#include <cstdint>

#include "event_manager.h"

namespace lum {

extern std::uint32_t provisioning_pulse;  // the handler's pulse code, written during start-up

// Runs on the event manager's thread whenever the pulse comes.
void provisioning_handler(event_manager, std::uint32_t, std::uint64_t);

// Serves one batch of the entity agent, on whatever thread its service uses.
void dispatch_ea_batch(std::uint32_t operation, const void *request, void *reply);

}  // namespace lum
