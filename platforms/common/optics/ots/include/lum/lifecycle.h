/** @file
 * Slots and ports come and go.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_LIFECYCLE_H
#define LUM_LIFECYCLE_H

#include <stdint.h>

#include "cerr.h"
#include "lum/constants.h"
#include "lum/slots.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_lifecycle Slots and ports
 * Slots and ports come and go, and their controllers are created again. Openings and closings of
 * a slot, deletions of its ports and creations are to be made one at a time; but creations of
 * different ports, of one slot or of several, may be made from several threads at once
 * (lum_create_ports()).
 * @{ */

/** Opens a slot's instance; one that is open loses its entries, its ports stay in the database.
 * Clears the resync marker.
 * @param rack  0 to 255; only traced.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @param props  Whether it is in use, and its capacity.
 * @return 0, also without memory and for a slot that there is not, or 22 for null `props`. */
cerrno lum_plat_init(uint32_t rack, uint32_t slot, uint32_t instance, const lum_slot_props *props);

/** Closes a slot's instance; its ports stay in the database.
 * @param rack  0 to 255; only traced.
 * @param slot  0 to 15.
 * @param instance  0 to 3.
 * @return Always 0. */
cerrno lum_plat_deinit(uint32_t rack, uint32_t slot, uint32_t instance);

/** Creates ports of one slot and instance and asks the interface manager for their controllers,
 * which exist once ctrl_op_notify has told so. Clears the resync marker.
 *
 * A port gets the handle 0 when its index is not its port number, or its instance is not open or
 * has no free entry; of two ports with one handle the second is dropped. So is a port that exists
 * already, and those behind it are not entered; one that has no handle yet stays, and a deletion
 * that was asked for is over with it, its mutex made anew.
 *
 * May be called from several threads at once for different slots and for different ports of one
 * slot, whose instance stays open meanwhile; each call sends a batch of its own. The callbacks are
 * then called from those threads at once.
 *
 * Waits for the bus, callbacks and the disk; where the port was deleted just before, also for its
 * deletion's completion to be done with the old record.
 * @param count  0 to 65535; with 0 no entry is read, slot and instance being taken as 0.
 * @param props  `count` entries, of which only rsip, port_index and port_handle are read; may be
 *   null when there are none.
 * @return 0, 12, 22 for null `props` with a `count`, or the request's code
 *   (lum_controllers_create()); none says whether the ports were entered. */
cerrno lum_create_ports(uint32_t count, const lum_port_props *props);

/** Stops the polling of the listed ports, takes and keeps their mutexes, and asks the interface
 * manager to delete their controllers; unknown ports are left out. The ports leave the database
 * when it has answered, whatever its results.
 *
 * After a batch that was refused or is never answered the ports stay, not polled, with their
 * mutexes kept by the calling thread, also beyond its end; a second call sends the batch again and,
 * from the same thread, finds its mutexes taken and lets go of them. While a mutex is kept nothing
 * is polled or written on the port, whatever is inserted or replayed; whoever waits for it comes
 * back. Do not delete a port whose interface handles are still 0: the first port with such a handle
 * would be named instead.
 *
 * Waits for a transfer in progress on each port, and for callbacks.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports.
 * @param ports  `count` port numbers, 0 to 255.
 * @return 0, 12, 22 when no listed port is known or `ports` is null, or the request's code
 *   (lum_controllers_delete()). */
cerrno lum_delete_ports(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                        const uint32_t *ports);

/** Sends a new controller state, sets the LED to #LUM_LED_FAULT and, for a non-zero state, writes
 * every setting ever changed into the module again. Waits for callbacks; for a non-zero state it
 * takes the port's mutex and waits for the bus.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param state  Sent as 0, or as 1 when it is not 0.
 * @return 0, whatever becomes of the request, or 22 when the port is unknown. */
cerrno lum_update_port(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port,
                       uint32_t state);

/** Sends one create batch for the controllers of every port again, with the resync marker set, and
 * clears every port's readings. Their number is added to lum_ctx.controller_count once more. Also
 * the way out when a creation has failed: see imca_completion. Waits for a callback.
 * @return 0, also with no port, 12, or the request's code (lum_controllers_create()). */
cerrno lum_replay_controllers(void);

/** Asks the entity agent for a replay and clears the resync marker. */
void lum_resync_with_ea(void);

/** Does nothing. */
void lum_change_rp_role(void);

/** Records the interface handles of controllers that the client created itself.
 * @param count  Controllers; below 1 nothing is done.
 * @param ifhandles  `count` handles.
 * @param names  `count` names; one may fill its element without a NUL.
 * @return 22 when an array is null, 0 when `count` is below 1, else the last one's code
 *   (lum_update_ifhandle()). */
cerrno lum_set_controller_ready_info(int32_t count, const uint32_t *ifhandles,
                                     const char (*names)[LUM_IFNAME_SIZE]);

/** Adds to the count of the controllers of the ports in the database, two a port.
 * @param n  Controllers. */
void lum_inc_ots_cntrs(uint32_t n);

/** Takes away from the count of controllers; stops at 0.
 * @param n  Controllers. */
void lum_dec_ots_cntrs(uint32_t n);

/** Counts the controllers of the ports in the database.
 * @return The count. */
uint32_t lum_num_ots_ctrls(void);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
