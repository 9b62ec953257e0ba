/* Result codes and their texts. */
#ifndef CERR_H
#define CERR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Result of every operation: 0 is success, small values are POSIX error numbers, the rest belong to
 * the service that answers. */
typedef uint32_t cerrno;

#define CERR_IS_OK(rc) ((rc) == 0)

/* Returns a text for `rc`, never null. The text is constant or valid until the calling thread's
 * next call; the caller does not free it. Any thread; waits for nothing. */
const char *cerr_strerror(cerrno rc);

#ifdef __cplusplus
}
#endif
#endif
