/* Alarm and counter ports. */
#ifndef PTAH_H
#define PTAH_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

#define PTAH_VALUES 55

/* All that is kept for one interface. */
typedef struct ptah_al_all {
  uint64_t bitmap;              /* alarms, docs/alarms.md */
  uint32_t values[PTAH_VALUES]; /* the service's own counters; liblum hands them on as they are */
} ptah_al_all;

/* The calls may come from any threads, wait for nothing but the store's own lock, and must not call
 * back. They return 0 or a code. Of a creation or deletion lum_pm_ptah_port_op returns it, of
 * clearing lum_lib_clear_stats; otherwise it is ignored. */

/* Creates the port of an interface of type `iftype` (188); `flags` is 0 and `enabled` 1. Its own
 * handle, which liblum does not use, is written to `*handle_out`. `name`, of at most 63 characters,
 * is read during the call. */
cerrno ptah_al_port_create(uint32_t iftype, uint32_t ifhandle, const char *name, uint32_t flags,
                           uint32_t enabled, uint64_t *handle_out);

/* Deletes the port. */
cerrno ptah_al_port_delete(uint32_t ifhandle);

/* Sets the interface's statistics back to zero. */
cerrno ptah_al_port_clear_stats(uint32_t ifhandle);

/* Stores the alarm bitmap; `valid` is 1. */
cerrno ptah_al_store_bmap(uint32_t ifhandle, uint64_t bitmap, uint32_t valid);

/* Publishes the stored bitmap and counters. */
cerrno ptah_al_send_bmap_counter(uint32_t ifhandle);

/* Copies everything kept for the interface into `*all`; on failure `*all` is left as it was. */
cerrno ptah_al_get_all_from_ptah(uint32_t ifhandle, ptah_al_all *all);

#ifdef __cplusplus
}
#endif
#endif
