/** @file
 * Result codes and their texts. */
#ifndef CERR_H
#define CERR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup cerr Result codes
 * Result codes and their texts.
 * @{ */

/** Result of every operation: 0 is success, small values are POSIX error numbers, the rest belong
 * to the service that answers. */
typedef uint32_t cerrno;

/** Whether a result is success.
 * @param rc  The result, a cerrno.
 * @return Non-zero for success. */
#define CERR_IS_OK(rc) ((rc) == 0)

/** Gives a text for a result. Any thread; waits for nothing.
 * @param rc  The result.
 * @return The text, never null; constant or valid until the calling thread's next call, and not the
 *   caller's to free. */
const char *cerr_strerror(cerrno rc);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
