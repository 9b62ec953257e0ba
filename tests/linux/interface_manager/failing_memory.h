// Memory that runs out for one thread at a chosen allocation.
#pragma once

#include <cstdint>

// From now on `new` on this thread serves `served` more allocations, then fails `failed` of them,
// then works again. It works for every other thread.
void memory_runs_out(uint64_t served, uint64_t failed);
