/** @file
 * The slot table: which instances are in use, and their ports' properties.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_SLOTS_H
#define LUM_SLOTS_H

#include <stdint.h>

#include "cerr.h"
#include "lum/constants.h"
#include "lum/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_slots Slot table
 * #LUM_MAX_SLOTS slots of #LUM_MAX_INSTANCES instances, each with an entry for every port it may
 * hold. The table has a lock of its own; see lum_plat_init() for what must still come one at a
 * time.
 * @{ */

/** Slot properties given to lum_plat_init(). */
typedef struct lum_slot_props {
  uint32_t used;     /**< Non-zero: the instance is in use. */
  uint32_t capacity; /**< Ports it may hold, 0 to 65535. */
} lum_slot_props;

/** One port's properties, as given to lum_create_ports() and as kept in the slot table. */
typedef struct lum_port_props {
  uint32_t rsip;            /**< `rack << 24 | slot << 16 | instance << 8 | port`. */
  uint32_t port_index;      /**< The rsip's port number; low 16 bits count. */
  uint32_t *context;        /**< The library's own cell; null in input records. */
  uint32_t client_words[2]; /**< Not used. */
  uint32_t port_handle;     /**< 1 to 65535, one of its own for each port of the node. */
  uint32_t in_use;          /**< The library's own: 1 for an entry that is filled. */
} lum_port_props;
LUM_ASSERT_LAYOUT(sizeof(lum_port_props) == 32);

/** Hook without behaviour.
 * @param rack  Ignored.
 * @param slot  Ignored.
 * @param instance  Ignored.
 * @return Always 0. */
cerrno lum_ctx_derive_hw_nodeid(uint32_t rack, uint32_t slot, uint32_t instance);

/** Opens an instance of a slot, also one that is open: its entries are discarded.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param props  Whether it is in use, and its capacity, of which the low 16 bits count.
 * @return Its array of `props->capacity` entries, owned by the library and valid until the instance
 *   is closed or opened again; null when there is no memory or no such slot. */
lum_port_props *lum_slot_properties_init(uint32_t slot, uint32_t instance,
                                         const lum_slot_props *props);

/** Closes an instance of a slot; one that is not in use stays as it is.
 * @param slot  0 to 15.
 * @param instance  0 to 3. */
void lum_slot_properties_deinit(uint32_t slot, uint32_t instance);

/** Fills free entries of an instance; records without a free entry are dropped.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param count  Records.
 * @param records  `count` records, of which rsip, port_index and port_handle are read; may be null
 *   when there are none. */
void lum_port_properties_init(uint32_t slot, uint32_t instance, uint16_t count,
                              const lum_port_props *records);

/** Empties every entry with a port index and takes each off the count, entries that are free (of
 * index 0, or their last one) too. Frees their context cells.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param port_index  The index. */
void lum_port_properties_deinit(uint32_t slot, uint32_t instance, uint16_t port_index);

/** Counts the filled entries of an instance.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @return The low 16 bits of the count; 0 when the instance is not in use. */
uint16_t lum_plat_num_port_info(uint32_t slot, uint32_t instance);

/** Gives the port index of an entry.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param entry  Position of the entry, from 0.
 * @return The index, 0 when there is no such entry. */
uint16_t lum_plat_port_idx(uint32_t slot, uint32_t instance, uint16_t entry);

/** Gives the port handle of a port index.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param port_index  The index.
 * @return The low 16 bits of the handle; 0 when there is none. */
uint16_t lum_plat_get_port_handle(uint32_t slot, uint32_t instance, uint16_t port_index);

/** Gives the entry of a port handle a new context cell. Without memory the entry has none.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param port_handle  The entry's handle; nothing is done for an unknown one.
 * @param value  What the cell holds. */
void lum_plat_set_sdev_ctx(uint32_t slot, uint32_t instance, uint32_t port_handle, uint32_t value);

/** Gives the context cell of a port handle.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param port_handle  The entry's handle.
 * @return The cell, or null. The library owns it and frees it with the port's removal, on the
 *   interface manager's thread. A cell that was replaced, or whose instance was closed or opened
 *   again, is never freed. */
uint32_t *lum_plat_get_sdev_ctx(uint32_t slot, uint32_t instance, uint32_t port_handle);

/** Tells whether any instance of a slot is in use.
 * @param slot  0 to 15.
 * @return 1 or 0. */
uint32_t lum_plat_is_slot_used(uint32_t slot);

/** Tells whether instance 0 of a slot is in use.
 * @param slot  0 to 15.
 * @return 1 or 0. */
uint32_t lum_plat_is_instance_used(uint32_t slot);

/** Hook without behaviour.
 * @param slot  Ignored.
 * @param instance  Ignored.
 * @param port  Ignored.
 * @return Always 1. */
uint32_t lum_plat_is_optics_inserted(int32_t slot, int32_t instance, int32_t port);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
