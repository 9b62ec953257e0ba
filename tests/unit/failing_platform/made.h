// What the calls need and has to be made before anything fails.
#pragma once

#include <cstdint>
#include <vector>

#include "lum.h"

namespace failing_platform {

struct made_before {
  lum_controller_create_request *create = nullptr;
  lum_controller_update_request *update = nullptr;
  lum_controller_delete_request *remove = nullptr;
  lum_port_data *port = nullptr;
  std::vector<uint8_t> create_reply;
};

made_before &made();

}  // namespace failing_platform
