/** @file
 * Bounded string copy. */
#ifndef BOUNDED_COPY_H
#define BOUNDED_COPY_H

#include <stddef.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup bounded_copy Bounded copy
 * A string copy that knows the size of its destination.
 * @{ */

/** Copies a text, up to its NUL, and terminates the copy. Any thread; waits for nothing.
 * @param[out] destination  `size` bytes; empty upon failure.
 * @param size  Bytes of the destination.
 * @param source  The text; nothing beyond its NUL or `count` bytes is read.
 * @param count  Characters to copy at most, below `size`.
 * @return 0; 22 when a pointer is null or `count` does not fit. */
cerrno strncpy_s(char *destination, size_t size, const char *source, size_t count);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
