/** @file
 * What follows when the interface manager has answered a batch.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_COMPLETIONS_H
#define LUM_COMPLETIONS_H

#include <stdint.h>

#include "cerr.h"
#include "imca.h"
#include "lum/controllers.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_completions Completions
 * What follows when the interface manager has answered a batch of @ref lum_controllers. The
 * completions are what it is given and run on its thread; the done-handlers bring the ports
 * database up to date, tell the client, and free the request and its arrays.
 * @{ */

/** Create reply element result that is not a failure: the element is skipped. */
#define LUM_IM_ELEMENT_BENIGN 0x809A4200u

/** Completion of a create batch. A successful element that cannot be decoded ends the process; the
 * first failed one ends the batch (imca_completion). Waits for callbacks, and for the bus and the
 * disk when the creation has to be made again.
 * @param reply  The reply; null is traced only.
 * @param context  The lum_controller_create_request; null is traced only. */
void lum_im_create_complete_resp_cb(imca_reply_info_type *reply, void *context);

/** Completion of an update batch. Waits for callbacks.
 * @param reply  Not looked at; may be null.
 * @param context  The lum_controller_update_request; null is traced only. */
void lum_im_update_complete_resp_cb(imca_reply_info_type *reply, void *context);

/** Completion of a delete batch. Waits for callbacks and the disk.
 * @param reply  Not looked at; may be null.
 * @param context  The lum_controller_delete_request; null is traced only. */
void lum_im_delete_complete_resp_cb(imca_reply_info_type *reply, void *context);

/** Records created controllers, makes their PM and PTAH ports, lets ports be polled that have both,
 * sets their LEDs and tells the client. Waits for callbacks.
 * @param request  Freed, with its entries. One without entries is left alone; null is traced
 *   only. */
void lum_controller_create_done(lum_controller_create_request *request);

/** Tells the client of updated controllers. Waits for callbacks.
 * @param request  Freed, with its handles only. Null is traced only. */
void lum_controller_update_done(lum_controller_update_request *request);

/** Records deleted controllers, deletes their PM and PTAH ports, removes ports that have none left,
 * and tells the client. Waits for callbacks; a port's last deletion also for the disk.
 * @param request  Freed, with its handles. Null is traced only. */
void lum_controller_delete_done(lum_controller_delete_request *request);

/** Records the interface handle of one controller.
 * @param ifname  Its interface name; the name parser refuses null.
 * @param ifhandle  The handle; 0 is recorded as none.
 * @return 0, 22 when the port is unknown or the sub-port above 1, or the name parser's code. */
cerrno lum_update_ifhandle(const char *ifname, uint32_t ifhandle);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
