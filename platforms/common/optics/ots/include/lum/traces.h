/** @file
 * Trace channels and text utilities.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_TRACES_H
#define LUM_TRACES_H

#include <stdint.h>

#include "ctrace.h"
#include "event_manager.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_traces Traces and texts
 * The library's four trace channels, and what its traces are made with. The channels are 0 until
 * lum_infra_init() has opened them, and to be read only.
 * @{ */

extern ctrace_handle ct_err;      /**< Failures. */
extern ctrace_handle ct_info;     /**< Progress. */
extern ctrace_handle ct_debug;    /**< Detail of the ports database. */
extern ctrace_handle ct_periodic; /**< The library writes nothing to it. */

/** Opens the four trace channels. Called by lum_infra_init(). Waits for the disk.
 * @param evm  The event manager through which the channels can be configured.
 * @return 0, or 0xFFFFFFFF at the first failure: what is open stays open. */
uint32_t lum_init_ctrace(event_manager evm);

/** Writes out and closes the four trace channels. The polling thread does not end and goes on
 * tracing to what is closed; a driver that stops rather calls ctrace_dump() for each channel and
 * ends the process. Waits for the disk.
 * @return Always 0. */
uint32_t lum_close_ctrace(void);

/** Gives the name of an interface state.
 * @param state  0 to 4.
 * @return "NOT READY", "ADMINDOWN", "OPER DOWN", "OPER UP" or "SHUTDOWN", "UNKNOWN" for any other
 *   state; constant text. */
const char *lum_intf_state_to_string(uint32_t state);

/** Cuts the white space at the end of a text: a NUL goes behind the last byte that stays.
 * @param[in,out] buf  `len + 1` bytes; may be null when `len` is below 1.
 * @param len  Bytes to look at; nothing is done when it is below 1. */
void lum_trim_trailing_spaces(char *buf, int32_t len);

/** Traces bytes in hexadecimal, whole lines of 16 only.
 * @param buf  `len` bytes, at least one; null gives the heading only.
 * @param len  Bytes; one is read even when it is below 1. */
void lum_print_hex_buffer_to_trace(const uint8_t *buf, int32_t len);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
