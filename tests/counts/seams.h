// What the process asks of the platform and of the system, counted at the calls themselves: those
// of this program stand before those of the libraries.
#pragma once

#include <cstdint>

#include "ctrace.h"

namespace counts {

struct tally {
  std::uint64_t allocations;  // malloc, calloc and realloc
  std::uint64_t flushes;      // fsync and fdatasync
  std::uint64_t writes;       // write and pwrite
  std::uint64_t tree_calls;
  std::uint64_t checkpoint_calls;
  std::uint64_t trace_lines;  // asked for; none is written
};

// Since the process has started, of all its threads.
tally now();

// Writes a line after all.
cerrno (*real_ctrace_internal())(ctrace_handle, std::uint32_t, std::uint32_t, std::uint32_t,
                                 const char *, const char *, ...);

}  // namespace counts
