// What the library knows of its ports, copied while it goes on working.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "lum.h"
#include "lum_linux/node_description.h"
#include "records/reading_history.h"

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

// What a few words of a port's data tell.
struct port_facts {
  uint32_t rsip = 0;
  bool created = false;   // both controllers exist
  bool going = false;     // a deletion was asked for
  bool inserted = false;  // the library takes the cage for filled
  bool to_be_polled = false;

  bool operator==(const port_facts &) const = default;
};

// The words of a port's data that the driver looks at after each polling cycle.
struct port_words {
  port_facts facts;
  struct controller {
    uint32_t ifhandle = 0;
    bool created = false;
    bool tested = false;         // a test adds to its readings
    uint64_t forced_alarms = 0;  // bits that a test raised
    sub_port_readings readings{};
  };
  std::array<controller, LUM_SUB_PORTS> controllers;
};

// Of every port, by rsip, into what the last call left: as copy_ports(), at a small part of its
// cost. May throw std::bad_alloc.
void gather_words(std::vector<port_words> &into);

// The port's among them; null when it is not there.
const port_words *find_words(const std::vector<port_words> &all, uint32_t rsip);

// A deletion of the port was asked for.
inline bool is_going(const port_copy &port) { return port.data.deletion_asked != 0; }

// Both controllers exist.
inline bool is_created(const port_copy &port) {
  return port.data.sub_port[0].created != 0 && port.data.sub_port[1].created != 0;
}

// The polling thread reads the module of one of them.
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
