// What the library knows of its ports, copied while it goes on working.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lum.h"
#include "lum_linux/node_description.h"

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

// A deletion of the port was asked for.
inline bool is_going(const port_copy &port) { return port.data.deletion_asked != 0; }

// Both controllers exist.
inline bool is_created(const port_copy &port) {
  return port.data.sub_port[0].created != 0 && port.data.sub_port[1].created != 0;
}

// The polling thread reads its module.
inline bool is_to_be_polled(const port_copy &port) {
  return is_created(port) && !is_going(port) && port.data.inserted != 0 &&
         port.data.is_dom_enabled != 0 && port.data.transceiver_disabled == 0;
}

// Any of them is.
bool has_work_for_polling();

// A text field of the library: ends at its NUL or with its field.
template <std::size_t size>
std::string text_of(const char (&field)[size]) {
  return std::string(field, strnlen(field, size));
}

// Calls `look` with each port of the list that the library knows, its copy, and each sub-port.
template <typename Look>
void each_sub_port(const std::vector<const lum_linux::port_description *> &ports,
                   const Look &look) {
  const auto copies = copy_ports();
  for (const auto *port : ports) {
    const auto copy = copies.find(port->rsip);
    if (copy == copies.end()) continue;
    for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) look(*port, copy->second, i);
  }
}

}  // namespace lumd
