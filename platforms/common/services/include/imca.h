/* The interface manager's replies, and the codec of its create replies. */
#ifndef IMCA_H
#define IMCA_H

#include <stdint.h>

#include "cerr.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reply to one batch. Owned by the interface manager and valid during the completion only. The
 * arrays hold `count` elements each. */
typedef struct imca_reply_info_type {
  uint32_t batch_error; /* non-zero: the whole batch failed */
  uint32_t reserved;
  int64_t count;              /* elements answered; 0 is possible for any batch */
  uint32_t *ifhandles;        /* written by the create completion */
  const cerrno *results;      /* one result per element */
  const char *const *names;   /* interface name of each element; an element may be null */
  const uint32_t *data_sizes; /* bytes of each encoded create reply */
  const uint8_t *const *data; /* encoded create reply of each element */
} imca_reply_info_type;

/* Completion of a batch: called once per accepted batch, on the interface manager's own thread,
 * possibly before the request call has returned. `context` is the one given with the request. */
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

/* Decodes `size` bytes at `data` into `*decoded`. Any bytes are accepted and checked. Returns 0, 12
 * or 22. After success the caller releases the record with ..._free_ext and the same allocator. */
cerrno wiredef_icpe_ext_intf_create_reply_data_decode_ext(
    const uint8_t *data, uint32_t size, wiredef_icpe_ext_intf_create_reply_data *decoded,
    const wiredef_allocator *allocator);

/* Returns non-zero when every required member was present. */
int wiredef_icpe_ext_intf_create_reply_data_have_required(
    const wiredef_icpe_ext_intf_create_reply_data *decoded);

/* Releases what the record owns. */
void wiredef_icpe_ext_intf_create_reply_data_free_ext(
    wiredef_icpe_ext_intf_create_reply_data *decoded, const wiredef_allocator *allocator);

#ifdef __cplusplus
}
#endif
#endif
