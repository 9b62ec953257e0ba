// Memory that runs out at a chosen allocation.
#pragma once

#include <cstdint>

// From now on `new` on this thread serves `served` more allocations, then fails `failed` of them,
// then works again. It works for every other thread. Returns how many it has failed since the call
// before.
uint64_t memory_runs_out(uint64_t served, uint64_t failed);

// As above for all other threads, which are counted together. It works for this one.
uint64_t memory_runs_out_elsewhere(uint64_t served, uint64_t failed);
