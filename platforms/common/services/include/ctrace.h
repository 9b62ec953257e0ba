/** @file
 * Trace channels. */
#ifndef CTRACE_H
#define CTRACE_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup ctrace Trace facility
 * Trace channels, each a buffer of lines that the platform keeps.
 * @{ */

/** An open channel; 0 is a channel that is not open. */
typedef uint64_t ctrace_handle;

/** Opens a channel. Called once per channel, under liblum's start-up lock; may wait for the disk.
 * All texts are read during the call only.
 * @param[out] handle  The channel's handle; left as it was upon failure.
 * @param name  The channel's name.
 * @param size  Bytes of its buffer.
 * @param points  Trace points of the caller's message catalogue.
 * @param directory_key  Names the platform's setting that holds the trace directory; liblum's is
 *   "liblum_ctrace_dir".
 * @param digest  32 hexadecimal digits: the digest of the catalogue.
 * @param flags  0.
 * @return 0, or a code, after which liblum opens no further channel. */
cerrno ctrace_open_internal(ctrace_handle *handle, const char *name, uint32_t size, uint32_t points,
                            const char *directory_key, const char *digest, uint32_t flags);

/** Lets the channel be configured at run time through an event manager. Called right after the
 * channel was opened, as that; waits for nothing.
 * @param handle  The channel.
 * @param local_event_manager  The event manager's local handle; may be null.
 * @return 0, or a code, after which liblum opens no further channel. */
cerrno ctrace_enable_configuration(ctrace_handle handle, void *local_event_manager);

/** Names the process in the traces. Called once, under liblum's start-up lock, before the channels
 * are opened; waits for nothing.
 * @param name  The name; read during the call only. */
void ctrace_set_process_name(const char *name);

/** Writes one trace line. Any thread, also with locks held: must not wait for long and must not
 * call back.
 * @param handle  The channel. Handles that are not open come: 0 for all that lum_lib_init() traces,
 *   and closed ones after lum_close_ctrace().
 * @param point  The call site's number in the catalogue, from 1.
 * @param nargs  Arguments behind `format`.
 * @param one  Always 1.
 * @param signature  One letter per argument: 's' a text, 'd' an integer of up to 32 bits, 'D' a
 *   64-bit integer or a pointer.
 * @param format  As of printf; constant text.
 * @param ...  The arguments. The first three are always the source module's name, the thread's id
 *   and the tag; texts are read during the call only.
 * @return 0, or a code that only lum_deinit_port() and lum_provision_port_cfg_data() hand on. */
cerrno ctrace_internal(ctrace_handle handle, uint32_t point, uint32_t nargs, uint32_t one,
                       const char *signature, const char *format, ...)
    __attribute__((format(printf, 6, 7)));

/** Writes out what the channel still buffers. Any thread, while others trace; may wait for the
 * disk.
 * @param handle  Any handle, 0 and closed ones too. */
void ctrace_dump(ctrace_handle handle);

/** Closes the channel; its handle is not open from then on. Any thread, while others trace; may
 * wait for the disk.
 * @param handle  Any handle, 0 and closed ones too. */
void ctrace_close(ctrace_handle handle);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
