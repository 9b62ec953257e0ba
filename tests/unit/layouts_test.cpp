// Where the fields of the records lie that clients and platforms read by offset.
#include <cstddef>

#include "lum.h"

namespace layouts_test {

static_assert(offsetof(lum_device_id_td, valid) == 0);
static_assert(offsetof(lum_device_id_td, port_handle) == 4);
static_assert(offsetof(lum_device_id_td, iftype) == 8);
static_assert(offsetof(lum_device_id_td, ifhandle) == 12);

static_assert(offsetof(lum_sub_port_intf, ifname) == 0);
static_assert(offsetof(lum_sub_port_intf, ifhandle) == 64);
static_assert(offsetof(lum_sub_port_intf, iftype) == 68);
static_assert(offsetof(lum_sub_port_intf, zero) == 70);
static_assert(offsetof(lum_sub_port_intf, controller_up) == 84);
static_assert(offsetof(lum_sub_port_intf, created) == 88);

static_assert(offsetof(lum_port_node_info, links) == 0);
static_assert(offsetof(lum_port_node_info, port_handle) ==
              offsetof(lum_port_node_info, rsip) + sizeof(uint32_t));
static_assert(offsetof(lum_port_node_info, data) ==
              offsetof(lum_port_node_info, port_handle) + sizeof(uint32_t));

}  // namespace layouts_test
