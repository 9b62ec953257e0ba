/* Test events: an operator sends a text to a registered handler. */
#ifndef TEST_EVENT_H
#define TEST_EVENT_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* `context` is the framework's own; `text` is NUL-terminated and valid during the call. Runs on a
 * thread of the framework's choice, one handler at a time. */
typedef void (*test_event_handler)(void *context, const char *text);

typedef struct test_event_record {
  uint32_t test_id;
  test_event_handler handler;
} test_event_record;

/* Registers `count` records, which must stay valid until the suite is closed, under the name
 * `suite`; `flags` is 0 and `client` the client's event manager. Returns 0 or a code, which
 * liblum ignores: the suite is then not there. Called on the client's thread; waits for nothing and
 * must not call the handlers. */
cerrno test_event_init_tests_v2(const char *suite, uint32_t flags, uint64_t client,
                                const test_event_record *records, uint32_t count);

/* Closes the suite, if there is one; its handlers are no longer called once this has returned.
 * Called on the client's thread; may wait for a handler that is running, but not on that handler's
 * own thread. */
void test_event_close_tests(const char *suite);

#ifdef __cplusplus
}
#endif
#endif
