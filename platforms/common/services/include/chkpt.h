/** @file
 * Checkpoint storage: records that survive a restart of the process. */
#ifndef CHKPT_H
#define CHKPT_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup chkpt Checkpoint storage
 * Records that survive a restart of the process.
 * @{ */

#define CHKPT_APPDESC_SIZE 128     /**< Bytes of an application descriptor. */
#define CHKPT_APPDESC_OPTIONS 16   /**< u32; 0. */
#define CHKPT_APPDESC_VERSION 96   /**< u32; of the application's records, liblum's is 0x2003. */
#define CHKPT_APPDESC_NAME 104     /**< char[24], NUL-terminated; the application's name. */
#define CHKPT_APPDESC_NAME_SIZE 24 /**< Bytes of the name, its NUL included. */

/** Application descriptor; a byte record with the positions named `CHKPT_APPDESC_`. */
typedef struct chkpt_appdesc {
  uint64_t words[CHKPT_APPDESC_SIZE / 8]; /**< The record, aligned for its widest member. */
} chkpt_appdesc;

#define CHKPT_TBLDESC_SIZE 40       /**< Bytes of a table descriptor. */
#define CHKPT_TBLDESC_VERSION 8     /**< u32; of the entries' data, liblum's is 0x12003. */
#define CHKPT_TBLDESC_KEYED 16      /**< u32; non-zero: entries are found by a key of 32 bits. */
#define CHKPT_TBLDESC_ENTRIES 24    /**< u16; entries to expect, not a limit. */
#define CHKPT_TBLDESC_PERSISTENT 32 /**< u32; non-zero: entries outlive the process. */

/** Table descriptor; a byte record with the positions named `CHKPT_TBLDESC_`. */
typedef struct chkpt_tbldesc {
  uint64_t words[CHKPT_TBLDESC_SIZE / 8]; /**< The record, aligned for its widest member. */
} chkpt_tbldesc;

/** chkpt_init() answers this when the service had been started before; it counts as success. */
#define CHKPT_ALREADY_INITIALISED 0x20EB8E00u

/** Fills an application descriptor with the service's defaults; the caller then sets the named
 * fields. Waits for nothing.
 * @param[out] descriptor  The descriptor. */
void chkpt_appdesc_init(chkpt_appdesc *descriptor);

/** Fills a table descriptor with the service's defaults; the caller then sets the named fields.
 * Waits for nothing.
 * @param[out] descriptor  The descriptor. */
void chkpt_tbldesc_init(chkpt_tbldesc *descriptor);

/** Starts the service for the application. Called by lum_lib_init() only, on its thread; may wait
 * for the disk and must not call back.
 * @param flags  0.
 * @param descriptor  The application; read during the call.
 * @return 0, #CHKPT_ALREADY_INITIALISED, or a code that becomes lum_lib_init()'s. */
cerrno chkpt_init(uint32_t flags, const chkpt_appdesc *descriptor);

/** Opens the table, creating it when it is not there. Called as chkpt_init().
 * @param descriptor  The table; read during the call.
 * @param kind  Tells the application's tables apart; liblum has one, 40.
 * @param[out] restart  1 when the storage of an earlier process was found, else 0; left as it was
 *   upon failure.
 * @param[out] table  The table's handle; left as it was upon failure.
 * @return 0, or a code that becomes lum_lib_init()'s. */
cerrno chkpt_register(const chkpt_tbldesc *descriptor, uint32_t kind, uint32_t *restart,
                      uint64_t *table);

/** @} */

/** @defgroup chkpt_entries Checkpoint entries
 * These calls may come from any threads; the service serialises them. They may wait for the disk,
 * and must not call back. They return 0 or a code, which liblum traces and hands on; a port whose
 * entry cannot be had works, its settings not being kept. An entry id is never 0. A call that
 * changes the table returns 0 only once the change survives the end of the process.
 * @{ */

/** Finds the entry with a key.
 * @param table  The table's handle.
 * @param key  The key, a port's rsip.
 * @param[out] id  The entry's id; left as it was when there is none.
 * @param node  `rack << 24 | slot << 16`.
 * @return 0, or non-zero when there is no such entry. */
cerrno chkpt_mapkey(uint64_t table, uint32_t key, uint64_t *id, uint32_t node);

/** Creates an entry without data.
 * @param table  The table's handle.
 * @param key  Its key, a port's rsip.
 * @param[out] id  The entry's id.
 * @return 0 or a code. */
cerrno chkpt_create(uint64_t table, uint32_t key, uint64_t *id);

/** Copies the entry's data.
 * @param table  The table's handle.
 * @param id  The entry.
 * @param flags  0.
 * @param[out] buffer  `*size` bytes.
 * @param[in,out] size  The buffer's size in bytes; becomes the number of bytes copied.
 * @return 0 or a code; an entry whose data does not have the size asked for is refused. */
cerrno chkpt_get(uint64_t table, uint64_t id, uint32_t flags, void *buffer, uint32_t *size);

/** Replaces the entry's data, all or nothing.
 * @param table  The table's handle.
 * @param id  The entry.
 * @param record  `size` bytes; read during the call.
 * @param size  Bytes.
 * @return 0 or a code. */
cerrno chkpt_save(uint64_t table, uint64_t id, const void *record, uint32_t size);

/** Deletes the entry.
 * @param table  The table's handle.
 * @param id  The entry.
 * @return 0 or a code. */
cerrno chkpt_delete(uint64_t table, uint64_t id);

/** Starts a walk over all entries that hold data: chkpt_iterate_next() until it fails or writes an
 * id of 0, then chkpt_iterate_end().
 * @param table  The table's handle.
 * @param[out] iterator  The walk's handle.
 * @return 0, or a code, upon which there is no walk. */
cerrno chkpt_iterate_start(uint64_t table, uint64_t *iterator);

/** Copies the data of the walk's next entry.
 * @param iterator  The walk's handle.
 * @param flags  0.
 * @param[out] id  The entry's id; 0 at the end.
 * @param[out] buffer  `*size` bytes.
 * @param[in,out] size  As of chkpt_get().
 * @return 0 or a code. */
cerrno chkpt_iterate_next(uint64_t iterator, uint32_t flags, uint64_t *id, void *buffer,
                          uint32_t *size);

/** Ends the walk.
 * @param iterator  The walk's handle; not valid from then on.
 * @return 0 or a code. */
cerrno chkpt_iterate_end(uint64_t iterator);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
