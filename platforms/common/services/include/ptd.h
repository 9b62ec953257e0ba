/** @file
 * Deadlock-monitor marks: a thread that is about to wait for a mutex says so, and takes it back. */
#ifndef PTD_H
#define PTD_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup ptd Deadlock-monitor marks
 * A thread that is about to wait for a mutex says so, and takes it back.
 * @{ */

/** The calling thread is about to wait for a mutex. Any thread; must not wait and must not call
 * back.
 * @param mutex  The mutex; only its address is of use.
 * @param function  Where; constant text, kept until the mark is taken back.
 * @param line  The source line. */
void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function, uint32_t line);

/** The calling thread no longer waits for a mutex, whether it got it or not. Any thread; must not
 * wait and must not call back.
 * @param mutex  The mutex. */
void ptd_unset_mutex_block(pthread_mutex_t *mutex);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
