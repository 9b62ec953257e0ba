/* Deadlock-monitor marks: a thread that is about to wait for a mutex says so, and takes it back. */
#ifndef PTD_H
#define PTD_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The calling thread is about to wait for `mutex` in `function` (constant text, kept until the mark
 * is taken back) at source line `line`. Any thread; must not wait and must not call back. */
void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function, uint32_t line);

/* The calling thread no longer waits for `mutex`, whether it got it or not. Any thread. */
void ptd_unset_mutex_block(pthread_mutex_t *mutex);

#ifdef __cplusplus
}
#endif
#endif
