// How the library's own code looks at the ports database.
#pragma once

#include <cstdint>

#include "lum.h"
#include "lum_ports_db/node_keeper.h"

namespace lum {

// The packing is a pure shift and OR: a part above 255 spills into the next field.
constexpr std::uint32_t pack_rsip(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                  std::uint32_t port) {
  return rack << 24 | slot << 16 | instance << 8 | port;
}

constexpr std::uint32_t rack_in(std::uint32_t rsip) { return rsip >> 24; }
constexpr std::uint32_t slot_in(std::uint32_t rsip) { return rsip >> 16 & 0xFF; }
constexpr std::uint32_t instance_in(std::uint32_t rsip) { return rsip >> 8 & 0xFF; }
constexpr std::uint32_t port_in(std::uint32_t rsip) { return rsip & 0xFF; }

inline std::uint32_t rsip_of(const lum_port_data &port) {
  return pack_rsip(port.rack, port.slot, port.instance, port.port);
}

// How requests name a port's controller; its numbers are cut to 8 bits.
inline lum_controller_id controller_id_of(const lum_port_data &port, std::uint32_t sub_port,
                                          std::uint32_t ifhandle) {
  lum_controller_id id = {};
  id.rack = static_cast<std::uint8_t>(port.rack);
  id.slot = static_cast<std::uint8_t>(port.slot);
  id.instance = static_cast<std::uint8_t>(port.instance);
  id.port = static_cast<std::uint8_t>(port.port);
  id.sub_port = static_cast<std::uint8_t>(sub_port);
  id.ifhandle = ifhandle;
  return id;
}

inline bool stands_at(const lum_port_data &port, std::uint32_t rack, std::uint32_t slot,
                      std::uint32_t instance, std::uint32_t number) {
  return port.rack == rack && port.slot == slot && port.instance == instance && port.port == number;
}

// The sub-port that an interface handle means: the port's first handle means sub-port 0, any other
// sub-port 1.
std::uint32_t sub_port_of(const lum_port_data &port, std::uint32_t ifhandle);

// All nodes in rsip order, without the database mutex. The walk is a reader section; a node that is
// removed while the walk stands on it is followed by its successor.
class all_ports {
 public:
  class iterator {
   public:
    explicit iterator(lum_port_node_info *node) : node_(node) {}
    lum_port_node_info &operator*() const { return *node_; }
    iterator &operator++();
    bool operator!=(const iterator &other) const { return node_ != other.node_; }

   private:
    lum_port_node_info *node_;
  };

  iterator begin() const;
  iterator end() const { return iterator(nullptr); }

 private:
  ports_reader reader_;
};

// The library's own look-ups, inside a reader section: the node found stays readable until the
// section ends. By rsip under the database mutex, by port handle without it.
lum_port_node_info *find_port(std::uint32_t rsip);
lum_port_node_info *find_port_by_handle(std::uint32_t port_handle);

// Whether the port has left the database and another one has its place, so that what is done to its
// module is done to the other's. Call inside a reader section, or with a port that is in the
// database.
bool is_replaced(const lum_port_data &port);

// The node at a position, found by walking from the first node; null when there is none. Call
// inside a reader section.
lum_port_node_info *walk_to(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                            std::uint32_t port);

// The sub-port that carries an interface handle, found by walking from the first node, sub-port 0
// before sub-port 1; a null node when there is none. Call inside a reader section.
struct found_sub_port {
  lum_port_node_info *node;
  std::uint32_t sub_port;
};
found_sub_port walk_to_ifhandle(std::uint32_t ifhandle);

}  // namespace lum
