/** @file
 * Alarm and counter ports. */
#ifndef PTAH_H
#define PTAH_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup ptah Alarm and counter ports
 * The calls may come from any threads, wait for nothing but the store's own lock, and must not call
 * back.
 * @{ */

#define PTAH_VALUES 55 /**< Counters kept for an interface. */

/** All that is kept for one interface. */
typedef struct ptah_al_all {
  uint64_t bitmap;              /**< Alarms, `LUM_ALARM_` bits; see `docs/alarms.md`. */
  uint32_t values[PTAH_VALUES]; /**< The service's own counters; handed on as they are. */
} ptah_al_all;

/** Creates the port of an interface.
 * @param iftype  188.
 * @param ifhandle  The interface.
 * @param name  Its name, of at most 63 characters; read during the call.
 * @param flags  0.
 * @param enabled  1.
 * @param[out] handle_out  The port's own handle, which liblum does not use.
 * @return 0, or a code that lum_pm_ptah_port_op() returns. */
cerrno ptah_al_port_create(uint32_t iftype, uint32_t ifhandle, const char *name, uint32_t flags,
                           uint32_t enabled, uint64_t *handle_out);

/** Deletes the port of an interface.
 * @param ifhandle  The interface.
 * @return 0, or a code that lum_pm_ptah_port_op() returns. */
cerrno ptah_al_port_delete(uint32_t ifhandle);

/** Sets the interface's statistics back to zero.
 * @param ifhandle  The interface.
 * @return 0, or a code that lum_lib_clear_stats() returns. */
cerrno ptah_al_port_clear_stats(uint32_t ifhandle);

/** Stores the alarm bitmap.
 * @param ifhandle  The interface.
 * @param bitmap  `LUM_ALARM_` bits.
 * @param valid  1.
 * @return 0 or a code, which is ignored. */
cerrno ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t valid);

/** Publishes the stored bitmap and counters.
 * @param ifhandle  The interface.
 * @return 0 or a code, which is ignored. */
cerrno ptah_al_send_bmap_counter(uint32_t ifhandle);

/** Copies everything kept for the interface.
 * @param ifhandle  The interface.
 * @param[out] all  What is kept; left as it was upon failure.
 * @return 0 or a code, which is ignored. */
cerrno ptah_al_get_all_from_ptah(uint32_t ifhandle, ptah_al_all *all);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
