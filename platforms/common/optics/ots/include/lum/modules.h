/** @file
 * Modules: access to their memory, what they say about themselves, and their state.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_MODULES_H
#define LUM_MODULES_H

#include <stdint.h>

#include "cerr.h"
#include "event_manager.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_modules Modules
 * The pluggable module of a port: its memory, its insertion and removal, and its state.
 * @{ */

/** Reads a module's memory, or writes one byte of it. The rack is 0: ports of another rack are not
 * found. Callers that need a consistent module hold the port's mutex. Waits for the bus.
 * @param direction  0 writes the first byte of `buffer`, any other number reads.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param page  0 to 255.
 * @param offset  0 to 127 is the lower page, 128 to 255 the upper half of `page`.
 * @param length  Bytes to read; nothing is read when it is below 1, and a write ignores it.
 * @param[in,out] buffer  `length` bytes, at least one for a write.
 * @return 0; 22 when the port is unknown, 2 when its module is taken for removed, 12, or the last
 *   attempt's code, `buffer` then holding what that left. */
cerrno lum_i2c_read_write(uint32_t direction, uint32_t slot, uint32_t instance, uint32_t port,
                          uint32_t page, uint32_t offset, int32_t length, uint8_t *buffer);

/** To be told of each insertion and removal: reads the identity of a module just inserted, what
 * cannot be read becoming zeros, or wipes that of one removed, sets the LED to #LUM_LED_FAULT and
 * ends its polling. An insertion waits for the bus, a removal for a callback.
 * @param rsip  The port.
 * @param inserted  Non-zero: inserted; 0: removed.
 * @return 0, or 22 when the port is unknown. */
cerrno lum_update_vendor_info(uint32_t rsip, int32_t inserted);

/** Asks the callback fw_upgrade_status and waits for it.
 * @param rsip  The port.
 * @param[in,out] status  Handed to the callback: 0 no firmware upgrade in progress, any other yes.
 * @return The callback's result. */
cerrno lum_optics_get_fw_upgrd_status(uint32_t rsip, uint32_t *status);

/** Calls lum_module_sweep_hw_status() for each listed port at its creation.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports.
 * @param ports  `count` port numbers, 0 to 255.
 * @return The last result, 0 without ports. */
cerrno lum_fill_initial_hw_info(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                const uint32_t *ports);

/** Traces the port as found at a start; does no more.
 * @param restart  Non-zero: a restart of the process, 0 a cold start.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @return 0, also for an unknown port, or 22 when the port's handle cannot be looked up. */
cerrno lum_module_sweep_hw_status(uint32_t restart, uint32_t rack, uint32_t slot, uint32_t instance,
                                  uint32_t port);

/** Initialiser of the "PD Module".
 * @param evm  Ignored.
 * @param restart  Ignored.
 * @return Always 0. */
cerrno lum_platform_init(event_manager evm, uint32_t restart);

/** Hook that only traces the ports.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports.
 * @param ports  `count` port numbers, 0 to 255. */
void lum_module_unavailable(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                            const uint32_t *ports);

/** Hook that only traces the ports.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports.
 * @param ports  `count` port numbers, 0 to 255.
 * @return The last trace's result, 0 without ports. */
cerrno lum_deinit_port(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                       const uint32_t *ports);

/** Hook without behaviour.
 * @return Always 0. */
cerrno lum_module_get_hw_status(void);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
