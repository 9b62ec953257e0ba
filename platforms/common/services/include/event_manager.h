/* The client's event manager. */
#ifndef EVENT_MANAGER_H
#define EVENT_MANAGER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An event manager; 0 is none. */
typedef uint64_t event_manager;

#define EVENT_PULSE_NONE 0xFFFFFFFFu

/* Runs on the event manager's thread, once per pulse taken, never twice at the same time. */
typedef void (*event_async_handler)(event_manager manager, uint32_t pulse, uint64_t value);

/* Returns the manager's local handle, or null, also for 0 and a manager that is not known. Any
 * thread; waits for nothing. */
void *event_manager_levm_get(event_manager manager);

/* Attaches `handler` at `priority` (0 to 255) with `flags` 0. Returns the pulse code to send with,
 * or EVENT_PULSE_NONE, upon which liblum's server does not start. Must not call the handler before
 * it returns. Called once, during start-up, on the client's thread; waits for nothing. */
uint32_t event_async_attach(event_manager manager, uint32_t priority, event_async_handler handler,
                            uint32_t flags);

/* Queues one pulse with `value`; the handler runs later, on the manager's own thread, also when the
 * sender is that thread. Any thread, with liblum's prov_lock held; waits for nothing and must not
 * call back. Returns 0 or a code, which liblum ignores: it sends no other pulse until this one
 * comes. */
uint32_t event_send_async(event_manager manager, uint32_t pulse, uint64_t value);

#ifdef __cplusplus
}
#endif
#endif
