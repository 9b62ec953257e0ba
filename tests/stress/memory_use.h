// How much memory the process has allocated and not freed.
#pragma once

#include <malloc.h>

#include <cstddef>

#include "settings.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizers' own allocator counts; the compiler has no header for it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace stress {

inline std::size_t allocated_bytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

}  // namespace stress
