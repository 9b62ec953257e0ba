/** @file
 * The interface manager's replies, and the codec of its create replies. */
#ifndef IMCA_H
#define IMCA_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @defgroup imca Interface manager replies
 * What the interface manager answers to a batch.
 * @{ */

/** Reply to one batch. Owned by the interface manager and valid during the completion only. The
 * arrays hold `count` elements each. Only of creations is it looked at; of other batches it may be
 * null. */
typedef struct imca_reply_info_type {
  uint32_t batch_error; /**< Non-zero: the whole batch failed. */
  uint32_t reserved;    /**< Not used. */
  /** Elements answered, the first of the batch; controllers that are not among them are taken for
   * created with the handle 0. */
  int64_t count;
  uint32_t *ifhandles;        /**< Written by the create completion; null: not wanted. */
  const cerrno *results;      /**< One result per element; null: all 0. */
  const char *const *names;   /**< Interface name of each element; may be null, and each too. */
  const uint32_t *data_sizes; /**< Bytes of each encoded create reply; null: all 0. */
  /** Encoded create reply of each element; neither may be null where the result is 0. */
  const uint8_t *const *data;
} imca_reply_info_type;

/** Completion of a batch: called once per accepted batch, on the interface manager's own thread,
 * possibly before the request call has returned. It frees the request; it may call the platform
 * back and wait for the bus and the disk.
 *
 * A create element with a result, or any with a batch error, ends the batch, unless the result is
 * #LUM_IM_ELEMENT_BENIGN: nobody is told, the request is not freed, and the ports of the batch stay
 * without controllers until lum_replay_controllers asks again. A failed element needs its name: for
 * one that cannot be parsed a creation is sent again, for the place that the parsing came to.
 * Results of updates and deletions are ignored: a port whose deletion failed is removed all the
 * same.
 * @param[in,out] reply  The reply; may be null of an update or a deletion.
 * @param context  The one given with the request. */
typedef void (*imca_completion)(imca_reply_info_type *reply, void *context);

/** Decoded create reply. */
typedef struct wiredef_icpe_ext_intf_create_reply_data {
  uint32_t ifhandle; /**< The new interface's handle. */
  uint32_t members;  /**< Presence bits, read by the required-members test. */
  char *description; /**< Optional text, owned by the record, null when absent. */
} wiredef_icpe_ext_intf_create_reply_data;

/** Where a decoded record takes its memory from. */
typedef struct wiredef_allocator {
  void *(*allocate)(uint64_t size); /**< Gives `size` bytes, or null without memory. */
  void (*release)(void *block);     /**< Takes a block back; null does nothing. */
} wiredef_allocator;

/** @} */

/** @defgroup imca_codec Create-reply codec
 * These calls come on the interface manager's thread, from the create completion. They wait for
 * nothing and call back nothing but the allocator.
 * @{ */

/** Decodes a create reply. After success the caller releases the record with
 * wiredef_icpe_ext_intf_create_reply_data_free_ext() and the same allocator.
 * @param data  `size` bytes, whatever they are; they are checked.
 * @param size  Bytes.
 * @param[out] decoded  The record.
 * @param allocator  Where the record takes its memory from.
 * @return 0, 12 or 22; any but 0 ends the process. */
cerrno wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *allocator);

/** Tells whether every required member was present.
 * @param decoded  The record.
 * @return Non-zero when it was; 0 ends the process. */
int wiredef_icpe_ext_intf_create_reply_data_have_required(
    const wiredef_icpe_ext_intf_create_reply_data *decoded);

/** Releases what the record owns.
 * @param[in,out] decoded  The record.
 * @param allocator  The one it was decoded with. */
void wiredef_icpe_ext_intf_create_reply_data_free_ext(
    wiredef_icpe_ext_intf_create_reply_data *decoded, const wiredef_allocator *allocator);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
