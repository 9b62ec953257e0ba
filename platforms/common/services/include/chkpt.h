/* Checkpoint storage: records that survive a restart of the process. */
#ifndef CHKPT_H
#define CHKPT_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Application descriptor; a byte record with named positions. */
#define CHKPT_APPDESC_SIZE 128
#define CHKPT_APPDESC_OPTIONS 16 /* u32, 0 */
#define CHKPT_APPDESC_VERSION 96 /* u32, of the application's records; liblum's is 0x2003 */
#define CHKPT_APPDESC_NAME 104   /* char[24], NUL-terminated */
#define CHKPT_APPDESC_NAME_SIZE 24
typedef struct chkpt_appdesc {
  uint64_t words[CHKPT_APPDESC_SIZE / 8];
} chkpt_appdesc;

/* Table descriptor; a byte record with named positions. */
#define CHKPT_TBLDESC_SIZE 40
#define CHKPT_TBLDESC_VERSION 8     /* u32, of the entries' data; liblum's is 0x12003 */
#define CHKPT_TBLDESC_KEYED 16      /* u32, non-zero: entries are found by a key of 32 bits */
#define CHKPT_TBLDESC_ENTRIES 24    /* u16, entries to expect; not a limit */
#define CHKPT_TBLDESC_PERSISTENT 32 /* u32, non-zero: entries outlive the process */
typedef struct chkpt_tbldesc {
  uint64_t words[CHKPT_TBLDESC_SIZE / 8];
} chkpt_tbldesc;

/* chkpt_init answers this when the service had been started before; it counts as success. */
#define CHKPT_ALREADY_INITIALISED 0x20EB8E00u

/* Fill a descriptor with the service's defaults; the caller then sets the fields above. Wait for
 * nothing. */
void chkpt_appdesc_init(chkpt_appdesc *descriptor);
void chkpt_tbldesc_init(chkpt_tbldesc *descriptor);

/* Starts the service for the application. `flags` is 0; the descriptor is read during the call.
 * Returns 0, CHKPT_ALREADY_INITIALISED, or a code that becomes lum_lib_init's. Called by
 * lum_lib_init only, on its thread; may wait for the disk and must not call back. */
cerrno chkpt_init(uint32_t flags, const chkpt_appdesc *descriptor);

/* Opens the table, creating it when it is not there, and writes its handle to `*table`. `kind` is
 * the number that tells the application's tables apart; liblum has one, 40. `*restart` becomes 1
 * when the storage of an earlier process was found, else 0. Returns 0 or a code, the outputs then
 * being left as they were. Called as chkpt_init. */
cerrno chkpt_register(const chkpt_tbldesc *descriptor, uint32_t kind, uint32_t *restart,
                      uint64_t *table);

/* The calls below may come from any threads; the service serialises them. They may wait for the
 * disk, and must not call back. They return 0 or a code, which liblum traces and hands on; a port
 * whose entry cannot be had works, its settings not being kept. An entry id is never 0. A call that
 * changes the table returns 0 only once the change survives the end of the process. */

/* Writes the id of the entry with `key` to `*id`; `node` is rack << 24 | slot << 16. Returns 0, or
 * non-zero, `*id` then being left as it was, when there is no such entry. */
cerrno chkpt_mapkey(uint64_t table, uint32_t key, uint64_t *id, uint32_t node);

/* Creates an entry without data for `key` and writes its id to `*id`. */
cerrno chkpt_create(uint64_t table, uint32_t key, uint64_t *id);

/* Copies the entry's data into `buffer`. `*size` holds the buffer's size in bytes and becomes the
 * number of bytes copied. An entry whose data does not have the size asked for is refused. */
cerrno chkpt_get(uint64_t table, uint64_t id, uint32_t flags, void *buffer, uint32_t *size);

/* Replaces the entry's data by `size` bytes at `record`, all or nothing. */
cerrno chkpt_save(uint64_t table, uint64_t id, const void *record, uint32_t size);

/* Deletes the entry. */
cerrno chkpt_delete(uint64_t table, uint64_t id);

/* Walk over all entries that hold data: start, next until it fails or writes an id of 0, end.
 * `flags` is 0; `*size` is as in chkpt_get. */
cerrno chkpt_iterate_start(uint64_t table, uint64_t *iterator);
cerrno chkpt_iterate_next(uint64_t iterator, uint32_t flags, uint64_t *id, void *buffer,
                          uint32_t *size);
cerrno chkpt_iterate_end(uint64_t iterator);

#ifdef __cplusplus
}
#endif
#endif
