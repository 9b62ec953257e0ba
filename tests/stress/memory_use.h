// How much memory the process has allocated and not freed.
#pragma once

#include <malloc.h>

#include <cstddef>

#include "settings.h"

#ifdef LUM_SANITIZED
// The sanitizers' own allocator counts; the compiler has no header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace stress {

inline std::size_t allocated_bytes() {
#ifdef LUM_SANITIZED
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

}  // namespace stress
