/** @file
 * Batches of controllers, and the requests that send them to the interface manager.
 *
 * What holds for every call stands in lum.h: @ref lum_conventions. */
#ifndef LUM_CONTROLLERS_H
#define LUM_CONTROLLERS_H

#include <stdint.h>

#include "cerr.h"
#include "lum/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** @defgroup lum_controllers Controller batches
 * Two controllers a port, created, updated and deleted in batches by the interface manager. Each of
 * the three requests is allocated zero-filled with calloc, as are its arrays, and freed by the
 * matching done-handler of @ref lum_completions. After a 0 a request belongs to the completion (or
 * to nobody when the callback is null), after a failure to the caller.
 * @{ */

#define LUM_ATTRS_SIZE 1696          /**< Bytes of an attribute block. */
#define LUM_CREATE_ELEMENT_SIZE 3232 /**< Bytes of an element of a create batch. */
#define LUM_UPDATE_ELEMENT_SIZE 1872 /**< Bytes of an element of an update batch. */
#define LUM_DELETE_ELEMENT_SIZE 3    /**< Bytes of an element of a delete batch. */

/** A controller's attribute block; a byte record, see `docs/wire-records.md`. */
typedef struct lum_controller_attrs {
  uint8_t bytes[LUM_ATTRS_SIZE]; /**< Members and their presence bits. */
} lum_controller_attrs;
LUM_ASSERT_LAYOUT(sizeof(lum_controller_attrs) == LUM_ATTRS_SIZE);

/** Which controller interface. rack to port read as one big-endian word are the rsip. */
typedef struct lum_controller_id {
  uint8_t valid;     /**< 1 for an element that names a controller. */
  uint8_t rack;      /**< 0 to 255. */
  uint8_t slot;      /**< 0 to 255. */
  uint8_t instance;  /**< 0 to 255. */
  uint8_t port;      /**< 0 to 255. */
  uint8_t sub_port;  /**< 0 or 1. */
  uint32_t ifhandle; /**< 0 until the interface manager gives one. */
} lum_controller_id;
LUM_ASSERT_LAYOUT(offsetof(lum_controller_id, sub_port) == 5);

/** One controller of a create request. */
typedef struct lum_controller_create_entry {
  lum_controller_id id;       /**< Which controller. */
  lum_controller_attrs attrs; /**< Its attributes. */
} lum_controller_create_entry;
LUM_ASSERT_LAYOUT(offsetof(lum_controller_create_entry, id) == 0);

/** Creates controllers. */
typedef struct lum_controller_create_request {
  uint32_t intf_type;                   /**< #LUM_IFTYPE_OTS. */
  int32_t count;                        /**< Entries, 1 or more. */
  lum_controller_create_entry *entries; /**< `count` entries; freed with the request. */
  uint32_t resync;                      /**< Non-zero: made while the resync marker was set. */
} lum_controller_create_request;

/** Deletes controllers. */
typedef struct lum_controller_delete_request {
  int32_t count;       /**< Handles, 1 or more. */
  uint32_t *ifhandles; /**< `count` handles; freed with the request. */
  void *zero;          /**< Not used, null. */
} lum_controller_delete_request;

/** Updates controllers. Of its arrays only the handles are freed with it; states and attrs stay
 * with the caller and are read during the call only. */
typedef struct lum_controller_update_request {
  int32_t count;               /**< Handles, 1 or more. */
  uint32_t *ifhandles;         /**< `count` handles; freed with the request. */
  uint32_t *states;            /**< `count` states, read when state_change is set. */
  lum_controller_attrs *attrs; /**< `count` blocks, read when capability_change is set. */
  uint32_t state_change;       /**< Non-zero: send the states. */
  uint32_t capability_change;  /**< Non-zero: send the attributes. */
} lum_controller_update_request;

/** Fills in a new controller's attribute block; existing presence bits are kept.
 * @param[in,out] attrs  The block.
 * @param sub_port  1 has a profile of its own, every other number that of sub-port 0. */
void lum_init_controller_capabilities(lum_controller_attrs *attrs, int32_t sub_port);

/** Clears an attribute block, but for ten bits that belong to no member.
 * @param[in,out] attrs  The block. */
void lum_controller_attrs_clear(lum_controller_attrs *attrs);

/** Copies what is sent of an attribute block into another, and marks it as present there.
 * @param source  The block to copy from.
 * @param[in,out] destination  The block to copy into; what is not sent stays as it is. */
void lum_controller_attrs_copy(const lum_controller_attrs *source,
                               lum_controller_attrs *destination);

/** Sends a create batch. Waits for a callback.
 * @param request  The request.
 * @param names  `request->count` interface names, of which those of empty elements are null.
 * @param types  `request->count` interface types; only the first is sent.
 * @return 0, 12, 22 for a null argument or array or a count below 1, or the interface manager's
 *   code. */
cerrno lum_controllers_create(lum_controller_create_request *request, const char *const *names,
                              const uint16_t *types);

/** Sends an update batch. Waits for a callback.
 * @param request  The request.
 * @return 0, 12, 22 for a null request or array that is needed or a count below 1, or the interface
 *   manager's code. */
cerrno lum_controllers_update(lum_controller_update_request *request);

/** Sends a delete batch. Waits for a callback.
 * @param request  The request.
 * @param types  `request->count` interface types; only the first is sent.
 * @return 0, 12, 22 for a null argument or array, a count below 1 or an unknown handle, or the
 *   interface manager's code. */
cerrno lum_controllers_delete(lum_controller_delete_request *request, const uint16_t *types);

/** Builds and sends the create batch of the listed ports; a port that is not found leaves two empty
 * elements at the end. Waits for callbacks, the bus and, as lum_chkpt_create(), the disk.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports.
 * @param ports  `count` port numbers, 0 to 255.
 * @return 0, also when no port is found, 12, or the code of lum_controllers_create(). */
cerrno lum_ots_controllers_create(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                  const uint32_t *ports);

/** Builds and sends the update batch of one port; an unknown port's handles are sent as 0. Waits
 * for a callback.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param port  0 to 255.
 * @param state  Sent as 0, or as 1 when it is not 0.
 * @return 0, 12, or the code of lum_controllers_update(). */
cerrno lum_ots_controllers_update(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t port,
                                  uint32_t state);

/** Builds and sends the delete batch of the listed ports; a port that is not found leaves two
 * handles of 0 at the end. Waits for a callback.
 * @param rack  0 to 255.
 * @param slot  0 to 255.
 * @param instance  0 to 255.
 * @param count  Ports.
 * @param ports  `count` port numbers, 0 to 255.
 * @return 0, 12, or the code of lum_controllers_delete(), which is 22 without ports. */
cerrno lum_ots_controllers_delete(uint32_t rack, uint32_t slot, uint32_t instance, uint32_t count,
                                  const uint32_t *ports);

/** Builds and sends the create batch of every port again, and clears the ports' readings. Waits for
 * a callback.
 * @return 0, also with no port, 12, or the code of lum_controllers_create(). */
cerrno lum_replay_ots_controllers(void);

/** @} */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
