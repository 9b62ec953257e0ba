// What the files of this platform share.
#pragma once

#include "lum.h"

// The interface manager's side of the callback table.
cerrno im_request_by_name(const char *const *names, uint16_t iftype, const void *payload,
                          uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                          imca_completion complete);
cerrno im_update_by_ifhandle(const uint32_t *ifhandles, uint32_t iftype, const void *payload,
                             uint32_t payload_size, uint32_t operation, void *context,
                             uint32_t count, imca_completion complete);
