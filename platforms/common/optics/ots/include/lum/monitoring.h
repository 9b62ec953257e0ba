/** @file
 * Performance monitoring, alarms and their tests.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_MONITORING_H
#define LUM_MONITORING_H

#include <stdint.h>

#include "cerr.h"
#include "lum/controllers.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_monitoring Monitoring
 * Readings for the performance-monitoring service (PM) and alarms for the alarm service (PTAH), one
 * port in each for every controller interface.
 *
 * The bits of a sub-port's alarm bitmap are named after the lower-page byte whose flags raise them.
 * @{ */

#define LUM_ALARM_FLAG_12 0x1ull          /**< Byte 12. */
#define LUM_ALARM_FLAG_10 0x2ull          /**< Byte 10. */
#define LUM_ALARM_FLAG_13 0x4ull          /**< Byte 13. */
#define LUM_ALARM_FLAG_49_A 0x20000ull    /**< Byte 49; sub-port 1 only. */
#define LUM_ALARM_FLAG_49_B 0x40000ull    /**< Byte 49; sub-port 1 only. */
#define LUM_ALARM_FLAG_64_HIGH 0x80000ull /**< Byte 64, its upper flags of the sub-port. */
#define LUM_ALARM_FLAG_64_LOW 0x100000ull /**< Byte 64, its lower flags of the sub-port. */

/** Creates or deletes the PM and PTAH ports of a controller interface; does nothing when PM's is as
 * wanted already.
 * @param operation  1 creates, 0 deletes, any other does nothing.
 * @param controller  The interface; its `valid` is not looked at.
 * @return The OR of both services' codes; 0 when nothing is done. */
cerrno lum_pm_ptah_port_op(uint32_t operation, lum_controller_id controller);

/** Hands the interface's stored readings to PM and its alarms to PTAH. The library never calls it:
 * the driver does, for each interface after each polling cycle. Waits for a callback.
 * @param ifhandle  The interface.
 * @return 0, whatever the stores answer, or 22 when the handle is 0 or unknown or the module's
 *   firmware is being upgraded. */
cerrno lum_update_pm_ptah_data(uint32_t ifhandle);

/** Does nothing. */
void lum_delete_pm_ports(void);

/** Clears the PTAH statistics of interfaces.
 * @param count  Interfaces.
 * @param ifhandles  `count` interface handles.
 * @return The last one's result; 22 for a null array or a `count` below 1. */
cerrno lum_lib_clear_stats(int32_t count, const uint32_t *ifhandles);

/** @} */

/** @defgroup lum_alarm_tests Alarm tests
 * An operator's test event forces alarms on, or readings up, for one sub-port; `docs/alarms.md` has
 * the numbers.
 * @{ */

extern char test_string[4][40]; /**< Names of the alarm test suites, NUL-terminated; read only. */

/** Installs the alarm test handler. Called by lum_infra_init() for suite 0 when its parameters ask
 * for it.
 * @param client  Ignored.
 * @param suite  Whose name is `test_string[suite]`, 0 to 3.
 * @return 0, whatever the framework answers, or 22 for a suite out of range. */
cerrno lum_pm_alarm_test_init(uint64_t client, uint32_t suite);

/** Removes the alarm test handler. Waits for a handler that is running.
 * @param suite  0 to 3; nothing is done for any other. */
void lum_pm_alarm_test_cleanup(uint32_t suite);

/** The alarm test handler.
 * @param context  Ignored.
 * @param text  `<anything>#<interface>#<test>#<alarm>#<status>`, the last three in hexadecimal,
 *   the interface of at most 63 characters. A text of another form, one that names no port, and
 * null change nothing. */
void lum_ots_test_alarms_pm(void *context, const char *text);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
