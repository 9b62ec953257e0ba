/** @file
 * Start-up and the library context.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_CONTEXT_H
#define LUM_CONTEXT_H

#include <pthread.h>
#include <stdint.h>

#include "chkpt.h"
#include "event_manager.h"
#include "lum/callbacks.h"
#include "lum/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_context Start-up and context
 * lum_lib_init() and lum_infra_init() start the library, once in a process's life; there is no
 * shut-down.
 * @{ */

#define LUM_PROCESS_NAME_SIZE 256 /**< Bytes of the process's name, its NUL included. */

/** Start-up parameters. */
typedef struct lum_infra_params {
  event_manager evm;      /**< The client's event manager. */
  uint32_t restart;       /**< Non-zero: the process is a restart of an earlier one. */
  uint32_t client_data;   /**< Kept in the context, not interpreted. */
  uint32_t pm_alarm_test; /**< Non-zero: install the alarm test hooks. */
  char process_name[LUM_PROCESS_NAME_SIZE]; /**< NUL-terminated; empty: "lum_library". */
  const lum_platform_cbs *platform_cbs;     /**< The table, copied; not null. */
} lum_infra_params;
LUM_ASSERT_LAYOUT(offsetof(lum_infra_params, process_name) == 20);

/** The one library context. Written during start-up and by the library itself; clients read. */
typedef struct lum_ctx {
  /** Controllers of accepted create batches, replays included, less those of delete batches,
   * modulo 256. Nothing is polled while it is 0: with 128 ports, or with 64 that have been replayed
   * once. */
  uint8_t controller_count;
  uint32_t restart; /**< From the parameters. */
  uint32_t resync;  /**< 1 from lum_replay_controllers() to the next resync, slot or creation. */
  uint32_t client_data;                     /**< From the parameters. */
  char process_name[LUM_PROCESS_NAME_SIZE]; /**< From the parameters, or "lum_library". */
  event_manager evm;                        /**< From the parameters. */
  uint32_t ea_replay_required_bitmap;       /**< Bit 0: a replay to the entity agent is owed. */
  uint8_t is_resync_with_ea_complete;       /**< 1 once the entity agent has ended a resync. */
  lum_platform_cbs platform_cbs;            /**< A copy of the parameters' table. */
  uint32_t dom_reserved;                    /**< Not used, 0. */
  pthread_t dom_thread;                     /**< The polling thread, once it has been started. */
  uint32_t dom_thread_started;              /**< 1 once the polling thread has been started. */
  uint64_t chkpt_table;    /**< The checkpoint service's handle of the ports' table. */
  chkpt_appdesc chkpt_app; /**< What the checkpoint service was started with. */
} lum_ctx;

/** Creates the start-up lock and registers the checkpoint table. Call once, before
 * lum_infra_init() and never beside it. Its traces go to channel 0: none is open yet. Waits for the
 * disk.
 * @return 0, or the checkpoint service's code. */
uint32_t lum_lib_init(void);

/** Starts the library: fills the context, opens the trace channels, initialises the modules, reads
 * the checkpoint records, blocks SIGRTMIN+6 and SIGRTMIN+10 in the calling thread and starts the
 * polling thread. A second call does nothing and returns 0. A mask that cannot be set, and trees
 * that cannot be started, end the process. Takes the start-up lock. Waits for the disk.
 * @param params  The parameters; nothing of them is kept but copies.
 * @return 0, the start-up lock's code, or the code of the thread's creation. A failing trace
 *   channel, module or checkpoint walk is only traced; the walk's code is the result where
 *   `dom_thread_started` was set already. */
uint32_t lum_infra_init(const lum_infra_params *params);

/** Gives the library context.
 * @return The context, never null; the library's. */
lum_ctx *lum_get_ctx(void);

/** Initialises, in table order, the internal modules that are not initialised yet; stops at the
 * first failure. Called by lum_infra_init(), never beside itself.
 * @param evm  The client's event manager.
 * @param restart  Non-zero: the process is a restart of an earlier one.
 * @return 0, or the code of the module that failed. */
uint32_t lum_modules_init(event_manager evm, uint32_t restart);

/** Tells every internal module that wants to know of a created port. A name without a sub-port ends
 * the process once its port is found.
 * @param ifname  Interface name of the port; null is unknown to the name parser.
 * @param argument  Goes to the modules as it is; may be null.
 * @return 0, whatever the modules answer, or the code of lum_ports_db_ifname2devid() when `ifname`
 *   is unknown, no module then being told. */
uint32_t lum_modules_port_create(const char *ifname, const void *argument);

/** Tells every internal module that wants to know of a deleted port, also of one that is unknown. A
 * name without a sub-port ends the process once its port is found.
 * @param ifname  Interface name of the port; null is unknown to the name parser.
 * @return Always 0. */
uint32_t lum_modules_port_delete(const char *ifname);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
