// What the library knows of its ports, copied while it goes on working.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "lum.h"

namespace lumd {

// One port's data. The copy's mutex is not one.
struct port_copy {
  uint32_t port_handle = 0;
  lum_port_data data = {};
};

// Every port in the library's database, by rsip. Takes no lock and waits for nothing.
std::map<uint32_t, port_copy> copy_ports();

// One of them, or nothing when it is not there.
std::optional<port_copy> copy_port(uint32_t rsip);

// A deletion of the port is under way.
inline bool is_going(const port_copy &port) { return port.data.mutex_kept_by != 0; }

// Both controllers exist.
inline bool is_created(const port_copy &port) {
  return port.data.sub_port[0].created != 0 && port.data.sub_port[1].created != 0;
}

}  // namespace lumd
