// What the files of this platform share.
#pragma once

#include "lum.h"

// The one port, of instance 0 in rack 0, and the one event manager.
constexpr uint32_t the_slot = 1;
constexpr uint32_t the_port = 3;
constexpr uint32_t the_port_handle = 7;
constexpr event_manager the_event_manager = 1;

// The callback table, but for what the driver is told of.
lum_platform_cbs callbacks();
uint32_t led_state();

// The interface manager's side of the callback table.
cerrno im_request_by_name(const char *const *names, uint16_t iftype, const void *payload,
                          uint32_t payload_count, uint32_t operation, void *context, uint32_t count,
                          imca_completion complete);
cerrno im_update_by_ifhandle(const uint32_t *ifhandles, uint32_t iftype, const void *payload,
                             uint32_t payload_size, uint32_t operation, void *context,
                             uint32_t count, imca_completion complete);
