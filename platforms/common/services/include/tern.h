/** @file
 * Thread ids and the system log. */
#ifndef TERN_H
#define TERN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup tern Thread ids and system log
 * The kernel's view of the process.
 * @{ */

/** Gives the kernel's id of the calling thread. Any thread; waits for nothing.
 * @return The id. */
int32_t tern_gettid(void);

/** Writes one line to the system log. Any thread; may wait for the log. Must not call back into
 * liblum.
 * @param facility  0 for the process's own facility.
 * @param format  As of printf.
 * @param ...  The arguments. */
void tern_syslog(int32_t facility, const char *format, ...) __attribute__((format(printf, 2, 3)));

/** @} */

#ifdef __cplusplus
}
#endif
#endif
