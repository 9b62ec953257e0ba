/* Trace channels. */
#ifndef CTRACE_H
#define CTRACE_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An open channel; 0 is a channel that is not open. */
typedef uint64_t ctrace_handle;

/* Opens the channel `name` with a buffer of `size` bytes and writes its handle to `*handle`.
 * `points` is the number of trace points of the caller's message catalogue, `directory_key` names
 * the platform's setting that holds the trace directory (liblum's is "liblum_ctrace_dir"), `digest`
 * is the 32-hex-digit digest of the catalogue, `flags` is 0. All texts are read during the call
 * only. Returns 0, or a code; `*handle` is then left as it was, and liblum opens no further
 * channel. Called once per channel, under liblum's start-up lock; may wait for the disk. */
cerrno ctrace_open_internal(ctrace_handle *handle, const char *name, uint32_t size, uint32_t points,
                            const char *directory_key, const char *digest, uint32_t flags);

/* Lets the channel be configured at run time through the event manager whose local handle is given
 * (may be null). Returns 0 or a code, after which liblum opens no further channel. Called right
 * after the channel was opened, as that; waits for nothing. */
cerrno ctrace_enable_configuration(ctrace_handle handle, void *local_event_manager);

/* Names the process in the traces. `name` is read during the call only. Called once, under liblum's
 * start-up lock, before the channels are opened; waits for nothing. */
void ctrace_set_process_name(const char *name);

/* Writes one trace line. `point` is the call site's number in the catalogue, `nargs` the number of
 * arguments behind `format`, `one` always 1, `signature` one letter per argument: 's' a text, 'd'
 * an integer of up to 32 bits, 'D' a 64-bit integer or a pointer. The first three arguments are
 * always the source module's name, the thread's id and the tag. Handles that are not open come: 0
 * for all that lum_lib_init traces, and closed ones after lum_close_ctrace. Returns 0 or a code
 * that no caller acts on. Any thread, also with locks held: must not wait for long and must not
 * call back. */
cerrno ctrace_internal(ctrace_handle handle, uint32_t point, uint32_t nargs, uint32_t one,
                       const char *signature, const char *format, ...)
    __attribute__((format(printf, 6, 7)));

/* Both take any handle, 0 and closed ones too, on any thread, while others trace; they may wait for
 * the disk. */

/* Writes out what the channel still buffers. */
void ctrace_dump(ctrace_handle handle);

/* Closes the channel; its handle is not open from then on. */
void ctrace_close(ctrace_handle handle);

#ifdef __cplusplus
}
#endif
#endif
