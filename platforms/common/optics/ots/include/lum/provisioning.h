/** @file
 * The provisioning handler and the entity-agent server.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_PROVISIONING_H
#define LUM_PROVISIONING_H

#include <pthread.h>
#include <stdint.h>

#include "cerr.h"
#include "event_manager.h"
#include "lum/ports.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_provisioning Provisioning
 * The provisioning handler visits, on the event manager's thread, the ports that are marked. Its
 * state is exported and to be read only.
 * @{ */

extern pthread_mutex_t prov_lock;         /**< Guards the next two. Error-checking. */
extern uint32_t lum_pending_provisioning; /**< 1: a pass has been asked for and not started. */
extern uint32_t lum_prov_pulse_sent;      /**< 1: a pulse is queued. */
extern uint32_t lum_prov_in_progress;     /**< 1: the handler is walking the ports. */
extern uint32_t prov_handler_run_count;   /**< Times the handler has been entered. */
extern uint32_t prov_thread_init_done;    /**< 1: the handler is attached. */
extern uint32_t ots_async_op;             /**< Always 0. */

/** Initialiser of the "SERVER" module: attaches the provisioning handler and registers the
 * entity-agent server where the platform has such a service.
 * @param evm  The client's event manager.
 * @param restart  Non-zero: the process is a restart of an earlier one; handed to the service.
 * @return 0, or 32 when the manager is 0 or the handler cannot be attached. */
cerrno lum_server_module_init(event_manager evm, uint32_t restart);

/** Asks for a provisioning pass on the event manager's thread. Takes prov_lock. */
void lum_wakeup_provisioning_thread(void);

/** Takes prov_lock. A failure is traced, not returned. Waits for the lock.
 * @param line  The caller's source line, for a failure's trace. */
void lum_prov_lock(int32_t line);

/** Releases prov_lock. A failure is traced, not returned.
 * @param line  The caller's source line, for a failure's trace. */
void lum_prov_unlock(int32_t line);

/** Marks a port to be visited by the provisioning handler.
 * @param[in,out] data  The port. */
void lum_mark_provisioning_needed(lum_port_data *data);

/** Takes the mark of lum_mark_provisioning_needed() back.
 * @param[in,out] data  The port. */
void lum_clear_provisioning_needed(lum_port_data *data);

/** Sets the port's force_reprovisioning, which is kept for the client.
 * @param[in,out] data  The port. */
void lum_set_force_reprovisioning(lum_port_data *data);

/** Hook without behaviour.
 * @return Always 1. */
uint32_t lum_is_config_changed(void);

/** The per-port provisioning step; a hook without behaviour.
 * @param data  The port.
 * @param port_handle  Its handle.
 * @return Always 0. */
cerrno lum_process_provisioning(lum_port_data *data, uint32_t port_handle);

/** Hook without behaviour.
 * @return Always 0. */
uint32_t lum_check_fpd_upgrade_progress(void);

/** Tells whether both controllers of a port are up, by lum_sub_port_intf.controller_up.
 * @param data  The port.
 * @return 1 or 0. */
uint32_t lum_is_ctrlrs_up(const lum_port_data *data);

/** Tells whether a port handle is known.
 * @param port_handle  The handle.
 * @return 0 when it is, else 22. */
cerrno lum_port_update_state(uint32_t port_handle);

/** @} */

/** @defgroup lum_entity_agent Entity agent
 * What the entity-agent server does with a batch.
 * @{ */

/** Called by the entity-agent service when an agent connects; only traces.
 * @return Always 0. */
cerrno lum_server_trigger_replay_request_on_connect(void);

/** Asks for a replay; does nothing.
 * @return Always 0. */
cerrno lum_server_trigger_replay_request(void);

/** Serves one entry of an entity-agent batch; only traces.
 * @param operation  As of ea_server_dispatch.
 * @param entry  A request entry as `ea_server.h` lays it out.
 * @param reply  Not used; may be null.
 * @return Always 0. */
cerrno lum_ots_ea_hdlrs(uint32_t operation, const void *entry, void *reply);

/** Hook without behaviour.
 * @return Always 0. */
cerrno lum_ots_handle_admin_update(void);

/** Hook without behaviour.
 * @return Always 0. */
cerrno lum_ots_fill_hw_info(void);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
