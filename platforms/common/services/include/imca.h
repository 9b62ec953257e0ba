/* The interface manager's replies, and the codec of its create replies. */
#ifndef IMCA_H
#define IMCA_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reply to one batch. Owned by the interface manager and valid during the completion only. The
 * arrays hold `count` elements each. Only of creations is it looked at; of other batches it may be
 * null. */
typedef struct imca_reply_info_type {
  uint32_t batch_error; /* non-zero: the whole batch failed */
  uint32_t reserved;
  int64_t count;            /* elements answered, the first of the batch; controllers that are not
                               among them are taken for created with the handle 0 */
  uint32_t *ifhandles;      /* written by the create completion; null: not wanted */
  const cerrno *results;    /* one result per element; null: all 0 */
  const char *const *names; /* interface name of each element; may be null, and each element too */
  const uint32_t *data_sizes; /* bytes of each encoded create reply; null: all 0 */
  const uint8_t *const *data; /* encoded create reply of each element; neither may be null where the
                                 result is 0 */
} imca_reply_info_type;

/* Completion of a batch: called once per accepted batch, on the interface manager's own thread,
 * possibly before the request call has returned. `context` is the one given with the request. It
 * frees the request; it may call the platform back and wait for the bus and the disk.
 *
 * A create element with a result, or any with a batch error, ends the batch, unless the result is
 * LUM_IM_ELEMENT_BENIGN: nobody is told, the request is not freed, and the ports of the batch stay
 * without controllers until lum_replay_controllers asks again. A failed element needs its name: for
 * one that cannot be parsed a creation is sent again, for the place that the parsing came to.
 * Results of updates and deletions are ignored: a port whose deletion failed is removed all the
 * same. */
typedef void (*imca_completion)(imca_reply_info_type *reply, void *context);

/* Decoded create reply. */
typedef struct wiredef_icpe_ext_intf_create_reply_data {
  uint32_t ifhandle;
  uint32_t members;  /* presence bits, read by the required-members test */
  char *description; /* optional text, owned by the record, null when absent */
} wiredef_icpe_ext_intf_create_reply_data;

/* Where a decoded record takes its memory from. */
typedef struct wiredef_allocator {
  void *(*allocate)(uint64_t size);
  void (*release)(void *block);
} wiredef_allocator;

/* The three calls below come on the interface manager's thread, from the create completion. They
 * wait for nothing and call back nothing but the allocator. */

/* Decodes `size` bytes at `data` into `*decoded`. Any bytes are accepted and checked. Returns 0, 12
 * or 22; any but 0 ends the process. After success the caller releases the record with ..._free_ext
 * and the same allocator. */
cerrno wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *allocator);

/* Returns non-zero when every required member was present; 0 ends the process. */
int wiredef_icpe_ext_intf_create_reply_data_have_required(
    const wiredef_icpe_ext_intf_create_reply_data *decoded);

/* Releases what the record owns. */
void wiredef_icpe_ext_intf_create_reply_data_free_ext(
    wiredef_icpe_ext_intf_create_reply_data *decoded, const wiredef_allocator *allocator);

#ifdef __cplusplus
}
#endif
#endif
