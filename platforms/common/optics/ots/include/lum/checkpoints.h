/** @file
 * Checkpoints: each port's configuration outlives the process.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_CHECKPOINTS_H
#define LUM_CHECKPOINTS_H

#include <stdint.h>

#include "cerr.h"
#include "lum/context.h"
#include "lum/ports.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_checkpoints Checkpoints
 * One record for each port, lum_chkpt_record, which outlives the process. All calls wait for the
 * disk; those for one port also for each other, and for the completion of a deletion from the
 * moment its port leaves the database until its record is gone. A port that has left the database
 * gets no record any more: creating and saving it succeed and do nothing. A block that never was in
 * the database is treated as any port's.
 * @{ */

/** Starts the checkpoint service and registers the table in the context. Called by lum_lib_init().
 * @param[in,out] context  The library context.
 * @param[out] restart  Whether there was a table of an earlier process, 1 or 0; untouched upon
 *   failure.
 * @return 0, 22 for a null pointer, or the service's code. */
cerrno lum_chkpt_init(lum_ctx *context, uint32_t *restart);

/** Creates the port's record, or loads the one of an earlier process into the port.
 * @param[in,out] data  The port.
 * @return 0, or the service's code. */
cerrno lum_chkpt_create(lum_port_data *data);

/** Saves the port's configuration, creating the record first where there is none; as
 * lum_chkpt_create() does, that takes over what is saved for the port already, and saves it again.
 * One save at a time: waits for other ports' too.
 * @param[in,out] data  The port; null does nothing.
 * @return 0, also for null, or the service's code. */
cerrno lum_chkpt_save(lum_port_data *data);

/** Walks and traces the records of an earlier process; a port that is in the database already gets
 * its own. Called by lum_infra_init(), when there are no ports.
 * @param context  The library context.
 * @return 0, 22 for null, or the service's code at the walk's start or end. */
cerrno lum_port_chkpt_recover(lum_ctx *context);

/** Deletes the port's record.
 * @param[in,out] data  The port.
 * @return 0, 22 for null, or the service's code, which is not 0 where there is no record. */
cerrno lum_port_chkpt_delete(lum_port_data *data);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
