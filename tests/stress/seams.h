// Stands in for the calls of the C library that make the library wait, so that hours of polling
// pass in seconds. sleep() is the polling thread's, usleep() the pause between the attempts of a
// transfer, and the file that stops all polling is never seen, whatever else goes on on the
// machine.
#pragma once

#include <chrono>
#include <cstdint>

namespace stress {

// The polling thread goes round by itself, pausing for so long between two cycles.
void poll_every(std::chrono::microseconds pause);

// The polling thread stands still but for the cycles asked for. Also to be called at the end of a
// test: the thread never ends.
void poll_on_demand();

// Lets one cycle happen; returns false when it has not ended within `bound`. On demand only.
bool run_polling_cycle(std::chrono::milliseconds bound);

// The two halves of the above.
void begin_polling_cycle();
bool polling_cycle_ended(std::chrono::milliseconds bound);

// From now on a pause between the attempts of a transfer is none at all. Without this it lets other
// threads run, which costs the time slices of other processes where these want the processors too.
void pause_for_nobody();

// Cycles ended so far, the skipped ones included.
uint64_t polling_cycles();

}  // namespace stress
