/** @file
 * Test events: an operator sends a text to a registered handler. */
#ifndef TEST_EVENT_H
#define TEST_EVENT_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup test_event Test events
 * An operator sends a text to a registered handler.
 * @{ */

/** Handles a test event. Runs on a thread of the framework's choice, one handler at a time.
 * @param context  The framework's own.
 * @param text  NUL-terminated and valid during the call. */
typedef void (*test_event_handler)(void *context, const char *text);

/** A handler of a suite. */
typedef struct test_event_record {
  uint32_t test_id;           /**< The handler's number in the suite; liblum's is 100. */
  test_event_handler handler; /**< The handler. */
} test_event_record;

/** Registers the handlers of a suite. Called on the client's thread; waits for nothing and must not
 * call the handlers.
 * @param suite  The suite's name.
 * @param flags  0.
 * @param client  The client's event manager.
 * @param records  `count` records, which stay valid until the suite is closed.
 * @param count  Records.
 * @return 0 or a code, which liblum ignores: the suite is then not there. */
cerrno test_event_init_tests_v2(const char *suite, uint32_t flags, uint64_t client,
                                const test_event_record *records, uint32_t count);

/** Closes the suite, if there is one; its handlers are no longer called once this has returned.
 * Called on the client's thread; may wait for a handler that is running, but not on that handler's
 * own thread.
 * @param suite  The suite's name. */
void test_event_close_tests(const char *suite);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
