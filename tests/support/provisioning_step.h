// The step of the provisioning handler that the library leaves empty.
#pragma once

#include <functional>

#include "lum.h"

namespace support {

// Runs in place of the library's own step for a port in need. To be set while no handler runs.
extern std::function<cerrno(lum_port_data *port, uint32_t port_handle)> &provisioning_step;

}  // namespace support
