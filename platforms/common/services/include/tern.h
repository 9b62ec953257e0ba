/* Thread ids and the system log. */
#ifndef TERN_H
#define TERN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the kernel's id of the calling thread. Any thread; waits for nothing. */
int32_t tern_gettid(void);

/* Writes one line to the system log. `facility` is 0 for the process's own facility; `format` and
 * the arguments are printf's. Any thread; may wait for the log. Must not call back into liblum. */
void tern_syslog(int32_t facility, const char *format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif
#endif
