/** @file
 * Performance-monitoring ports. */
#ifndef PM_UI_H
#define PM_UI_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup pm_ui Performance-monitoring ports
 * The calls may come from any threads, wait for nothing but the store's own lock, and must not call
 * back.
 * @{ */

/** Latest optics primitives of one controller interface. */
typedef struct pm_ui_optics_record {
  uint32_t reading_3;    /**< Reading 3 with its test offset, divided by 10. */
  uint32_t reading_4[3]; /**< Reading 4 with its test offset, three times. */
  uint32_t power_1;      /**< Reading 1 with its test offset, in tenths of a microwatt. */
  uint32_t power_0;      /**< Reading 0 with its test offset, in tenths of a microwatt. */
} pm_ui_optics_record;

/** Looks an interface up.
 * @param ifhandle  The interface.
 * @return The store's node of the interface, or null when it has none; only tested against null. */
const void *pm_ui_db_search_node(uint32_t ifhandle);

/** Creates the port of an interface. Only called where pm_ui_db_search_node() finds nothing.
 * @param iftype  188.
 * @param ifhandle  The interface.
 * @param name  Its name, of at most 63 characters; read during the call.
 * @return 0, or a code that lum_pm_ptah_port_op() returns. */
cerrno pm_ui_port_create(uint32_t iftype, uint32_t ifhandle, const char *name);

/** Deletes the port of an interface. Only called where pm_ui_db_search_node() finds it.
 * @param ifhandle  The interface.
 * @return 0, or a code that lum_pm_ptah_port_op() returns. */
cerrno pm_ui_port_delete(uint32_t ifhandle);

/** Hands over the latest primitives.
 * @param ifhandle  The interface.
 * @param record  The primitives; read during the call.
 * @param valid  1.
 * @param flags  0.
 * @return 0 or a code, which is ignored. */
cerrno pm_ui_set_optics_prim(uint32_t ifhandle, const pm_ui_optics_record *record, uint32_t valid,
                             uint32_t flags);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
