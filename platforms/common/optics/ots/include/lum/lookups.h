/** @file
 * Conversions between a port's identities, and from them to its data.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_LOOKUPS_H
#define LUM_LOOKUPS_H

#include <stdint.h>

#include "cerr.h"
#include "lum/ports.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_lookups Look-ups
 * Conversions between a port's identities, and from them to its data. A call that waits for a
 * callback asks ifname_from_ifh for the name of a handle that the database does not know. A port
 * data block handed out stays valid only while its port exists.
 * @{ */

/** Writes the port handle of an rsip.
 * @param rsip  The port.
 * @param[out] port_handle  Its handle; untouched upon failure.
 * @return 0, or #LUM_NOT_FOUND. */
cerrno lum_ports_db_rsip2port_handle(uint32_t rsip, uint32_t *port_handle);

/** Writes the rsip of a port handle.
 * @param port_handle  The handle.
 * @param[out] rsip  The port; untouched upon failure.
 * @return 0, or #LUM_NOT_FOUND. */
cerrno lum_ports_db_port_handle2rsip(uint32_t port_handle, uint32_t *rsip);

/** Copies the device id of an interface handle. A name without a sub-port ends the process once its
 * port is found. Waits for a callback.
 * @param ifhandle  The interface.
 * @param[out] out  Its device id; untouched upon failure, and also when its name is known but its
 *   port is not in the database.
 * @return 0, #LUM_NOT_FOUND when nothing is known or the sub-port is above 1, or the name parser's
 *   code. */
cerrno lum_ports_db_ifh2devid(uint32_t ifhandle, lum_device_id_td *out);

/** Copies the device id of an interface name. A name without a sub-port ends the process once its
 * port is found.
 * @param ifname  The interface; the name parser refuses null.
 * @param[out] out  Its device id; untouched upon failure.
 * @return 0, #LUM_NOT_FOUND when the port is not in the database or the sub-port is above 1, or the
 *   name parser's code. */
cerrno lum_ports_db_ifname2devid(const char *ifname, lum_device_id_td *out);

/** Copies the device id of a port's sub-port.
 * @param port_handle  The port.
 * @param sub_port  0 or 1.
 * @param[out] out  The device id; untouched upon failure.
 * @return 0, or 2 when there is none. */
cerrno lum_ports_db_port_handle2devid(uint32_t port_handle, uint32_t sub_port,
                                      lum_device_id_td *out);

/** Gives the port data of an interface name.
 * @param ifname  The interface; the name parser refuses null.
 * @param[out] out  The address of the port data, the library's; untouched upon failure.
 * @return 0, 22 when the port is unknown, or the name parser's code. */
cerrno lum_get_port_info(const char *ifname, lum_port_data **out);

/** Gives the port data of an interface handle. Waits for a callback.
 * @param ifhandle  The interface.
 * @param[out] out  The address of the port data, the library's; untouched upon failure.
 * @param[out] device_id  The device id; may be null. Written once the interface is known.
 * @return 0, 2 when the interface is unknown, or the result of lum_get_port_info(). */
cerrno lum_get_s_dev_info(uint32_t ifhandle, lum_port_data **out, lum_device_id_td *device_id);

/** Writes the rsip of an interface handle. Waits for a callback.
 * @param ifhandle  The interface.
 * @param[out] rsip  The port; untouched when the interface has no name.
 * @return 0, 22 when the interface has no name, or the name parser's code, `*rsip` then holding
 *   what could be parsed. */
cerrno lum_ports_db_get_rsip_from_ifh(uint32_t ifhandle, uint32_t *rsip);

/** Copies the name of an interface handle from the database.
 * @param ifhandle  The interface.
 * @param[out] name  #LUM_DEVID_NAME_SIZE bytes; untouched upon failure.
 * @return 0, or 22 when no port has the handle. */
cerrno lum_get_ifname_from_ctx(uint32_t ifhandle, char *name);

/** @} */

/** @defgroup lum_safe_queries Queries under the serial lock
 * They wait for the serial lock, and are not to be called while holding it.
 * @{ */

/** Takes the serial lock that brackets the queries below. A failure is traced, not returned. Waits
 * for the lock.
 * @param line  Ignored.
 * @param name  The caller's name, for a failure's trace; may be null. */
void lum_serial_lock(uint32_t line, const char *name);

/** Releases the serial lock. A failure is traced, not returned.
 * @param line  Ignored.
 * @param name  The caller's name, for a failure's trace; may be null. */
void lum_serial_unlock(uint32_t line, const char *name);

/** As lum_get_port_info().
 * @param ifname  The interface; the name parser refuses null.
 * @param[out] out  The address of the port data, the library's; untouched upon failure.
 * @return As lum_get_port_info(). */
cerrno lum_safely_get_port_info(const char *ifname, lum_port_data **out);

/** Writes the interface handle of a port's sub-port.
 * @param port_handle  The port.
 * @param sub_port  0 or 1.
 * @param[out] ifhandle  The handle, 0 when the controller is not created yet; untouched upon
 *   failure.
 * @return 0, or 22 when there is no such port or sub-port. */
cerrno lum_safely_get_ifhandle(uint32_t port_handle, uint32_t sub_port, uint32_t *ifhandle);

/** Copies the device id of a port's sub-port.
 * @param port_handle  The port.
 * @param sub_port  0 or 1.
 * @param[out] out  The device id; cleared upon failure.
 * @return 0, or 22 when there is no such port or sub-port. */
cerrno lum_safely_get_devinfo(uint32_t port_handle, uint32_t sub_port, lum_device_id_td *out);

/** Writes the rsip of a port handle.
 * @param port_handle  The handle.
 * @param[out] rsip  The port; untouched upon failure.
 * @return 0, or #LUM_NOT_FOUND. */
cerrno lum_safely_get_rsip(uint32_t port_handle, uint32_t *rsip);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
