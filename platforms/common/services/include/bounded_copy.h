/* Bounded string copy. */
#ifndef BOUNDED_COPY_H
#define BOUNDED_COPY_H

#include <stddef.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Copies at most `count` characters of `source` (up to its NUL, never beyond `count` bytes) into
 * `destination` of `size` bytes and terminates it. `count` must be below `size`. Returns 0; 22 when
 * a pointer is null or `count` does not fit, the destination then being empty. Any thread. */
cerrno strncpy_s(char *destination, size_t size, const char *source, size_t count);

#ifdef __cplusplus
}
#endif
#endif
