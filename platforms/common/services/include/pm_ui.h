/* Performance-monitoring ports. */
#ifndef PM_UI_H
#define PM_UI_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Latest optics primitives of one controller interface. */
typedef struct pm_ui_optics_record {
  uint32_t reading_3;    /* reading 3 with its test offset, divided by 10 */
  uint32_t reading_4[3]; /* reading 4 with its test offset, three times */
  uint32_t power_1;      /* reading 1 with its test offset, in tenths of a microwatt */
  uint32_t power_0;      /* reading 0 with its test offset, in tenths of a microwatt */
} pm_ui_optics_record;

/* The calls may come from any threads, wait for nothing but the store's own lock, and must not call
 * back. They return 0 or a code: of a creation or deletion lum_pm_ptah_port_op returns it and goes
 * on, of primitives it is ignored. */

/* Returns the store's node of the interface, or null when it has none. The node is only tested
 * against null. */
const void *pm_ui_db_search_node(uint32_t ifhandle);

/* Creates the port of an interface of type `iftype` (188). `name`, of at most 63 characters, is
 * read during the call. Only called where pm_ui_db_search_node finds nothing. */
cerrno pm_ui_port_create(uint32_t iftype, uint32_t ifhandle, const char *name);

/* Deletes the port. Only called where pm_ui_db_search_node finds it. */
cerrno pm_ui_port_delete(uint32_t ifhandle);

/* Hands over the latest primitives; `valid` is 1 and `flags` 0. */
cerrno pm_ui_set_optics_prim(uint32_t ifhandle, const pm_ui_optics_record *record, uint32_t valid,
                             uint32_t flags);

#ifdef __cplusplus
}
#endif
#endif
