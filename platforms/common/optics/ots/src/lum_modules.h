// The library's internal modules: initialised in table order, told of created and deleted ports.
#pragma once

#include <cstdint>
#include <span>

#include "lum.h"

namespace lum {

struct lum_module {
  std::uint32_t init_done;
  const char *name;
  cerrno (*init)(event_manager evm, std::uint32_t restart);
  cerrno (*port_create)(const lum_device_id_td *port, const void *argument);  // may be null
  cerrno (*port_delete)(const lum_device_id_td *port);                        // may be null
};

// The table, which stands in lum_modules.cpp.
std::span<lum_module> lum_module_table();

}  // namespace lum
