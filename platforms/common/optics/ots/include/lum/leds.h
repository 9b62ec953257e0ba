/** @file
 * Port LEDs.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_LEDS_H
#define LUM_LEDS_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_leds LEDs
 * The LED of each port. States other than the named ones are passed through. None of these calls
 * holds a lock over the callback.
 * @{ */

#define LUM_LED_OFF 0u    /**< Cleared. */
#define LUM_LED_NORMAL 1u /**< The last good poll found no fault flag raised. */
/** A fault flag raised, the module removed, or no good poll since the creation or an update. */
#define LUM_LED_FAULT 3u

/** Sets a port's LED: to #LUM_LED_OFF first, and then to another state. The state is recorded as
 * asked for whatever the callback answers. Waits for the callback.
 * @param rsip  The port.
 * @param ignored  Ignored.
 * @param state  The state.
 * @return The callback's code, 0 without one, or 22 when the port is unknown. */
cerrno lum_optics_led_set_state(uint32_t rsip, uint32_t ignored, uint32_t state);

/** Reads a port's LED. Waits for the callback.
 * @param rsip  The port.
 * @param ignored  Ignored.
 * @param[out] state  The state; the one asked for last when the callback fails, untouched when
 *   there is none.
 * @return 0, or 22 when the callback fails and the port is unknown. */
cerrno lum_optics_led_get_state(uint32_t rsip, uint32_t ignored, uint32_t *state);

/** Merges two LED states: equal ones give themselves, #LUM_LED_OFF the other one, #LUM_LED_NORMAL
 * wins over the rest.
 * @param first  One state.
 * @param second  The other.
 * @param[in,out] result  The merged state; left as it was by two different states, neither 0 nor
 *   1. */
void lum_get_final_sw_led_state(uint32_t first, uint32_t second, uint32_t *result);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
