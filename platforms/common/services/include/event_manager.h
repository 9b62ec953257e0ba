/** @file
 * The client's event manager. */
#ifndef EVENT_MANAGER_H
#define EVENT_MANAGER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup event_manager Event manager
 * Runs handlers on the client's thread.
 * @{ */

/** An event manager; 0 is none. */
typedef uint64_t event_manager;

#define EVENT_PULSE_NONE 0xFFFFFFFFu /**< No pulse code. */

/** Runs on the event manager's thread, once per pulse taken, never twice at the same time.
 * @param manager  The event manager.
 * @param pulse  The pulse code.
 * @param value  What was given to event_send_async(). */
typedef void (*event_async_handler)(event_manager manager, uint32_t pulse, uint64_t value);

/** Gives the manager's local handle. Any thread; waits for nothing.
 * @param manager  The event manager.
 * @return The handle, or null, also for 0 and a manager that is not known. */
void *event_manager_levm_get(event_manager manager);

/** Attaches a handler. Must not call it before it returns. Called once, during start-up, on the
 * client's thread; waits for nothing.
 * @param manager  The event manager.
 * @param priority  0 to 255.
 * @param handler  The handler; valid for as long as the process lives.
 * @param flags  0.
 * @return The pulse code to send with, or #EVENT_PULSE_NONE, upon which liblum's server does not
 *   start. */
uint32_t event_async_attach(event_manager manager, uint32_t priority, event_async_handler handler,
                            uint32_t flags);

/** Queues one pulse; the handler runs later, on the manager's own thread, also when the sender is
 * that thread. Any thread, with liblum's prov_lock held; waits for nothing and must not call back.
 * @param manager  The event manager.
 * @param pulse  The pulse code that event_async_attach() gave.
 * @param value  Goes to the handler.
 * @return 0 or a code, which liblum ignores: it sends no other pulse until this one comes. */
uint32_t event_send_async(event_manager manager, uint32_t pulse, uint64_t value);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
