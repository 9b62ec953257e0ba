// Event managers, behind event_manager.h: they are made, waited for and ended here.
//
// What holds for every call stands in lum_linux/services.h.
#pragma once

#include <chrono>
#include <string>

#include "event_manager.h"

namespace lum_linux {

// Starts an event manager with a thread of its own, of which the first 15 characters of `name` are
// the name. Returns its handle, or 0 when there is no memory or thread to be had.
event_manager event_manager_create(const std::string &name);

// Ends an event manager: pulses still queued are dropped and the handle is unknown from now on.
// Waits up to `bound` for a handler that is running; returns false when it had to be left behind,
// and for an unknown handle. On the manager's own thread it asks for the end without waiting.
bool event_manager_destroy(event_manager manager,
                           std::chrono::milliseconds bound = std::chrono::seconds(2));

// Waits until no pulse is queued and no handler runs; false when `bound` passed before, for an
// unknown handle and on the manager's own thread.
bool event_manager_drain(event_manager manager, std::chrono::milliseconds bound);

}  // namespace lum_linux
