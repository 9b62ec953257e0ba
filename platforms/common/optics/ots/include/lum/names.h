/** @file
 * Interface names.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_NAMES_H
#define LUM_NAMES_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_names Interface names
 * A controller's interface is named `Ots<rack>_<slot>_<instance>_<port>_<sub-port>`, its numbers in
 * decimal.
 * @{ */

/** Writes the name of an interface.
 * @param iftype  #LUM_IFTYPE_OTS; any other gives an empty name.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param reserved  Ignored.
 * @param sub_port  0 or 1.
 * @param[out] dst  #LUM_IFNAME_SIZE bytes, all of which are written.
 * @return Always 0. */
cerrno lum_construct_if_name(uint32_t iftype, uint32_t rack, uint32_t slot, uint32_t instance,
                             uint32_t port, uint32_t reserved, uint32_t sub_port, char *dst);

/** Writes the name of a port's OTS interface.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param sub_port  0 or 1.
 * @param[out] dst  #LUM_IFNAME_SIZE bytes, all of which are written.
 * @return Always 0. */
cerrno lum_get_intfname_for_port(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port,
                                 uint32_t sub_port, char *dst);

/** Takes a name apart. Every output may be null; one that is not produced is left untouched, so the
 * caller zeroes them first.
 * @param ifname  The name; the name parser refuses null.
 * @param[out] iftype  #LUM_IFTYPE_OTS, or 0 for a name of another type.
 * @param[out] rack  The rack.
 * @param[out] slot  The slot.
 * @param[out] instance  The instance.
 * @param[out] port  The port.
 * @param[out] sub_port_valid  1 when the name carries a sub-port, else untouched, and so where
 *   `sub_port` is null.
 * @param[out] sub_port  The sub-port, when the name carries one and `sub_port_valid` is not null.
 * @return 0, or the code of the name parser or of the slot's conversion. */
cerrno lum_parse_if_name(const char *ifname, uint32_t *iftype, uint32_t *rack, uint32_t *slot,
                         uint32_t *instance, uint32_t *port, uint32_t *sub_port_valid,
                         uint32_t *sub_port);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
