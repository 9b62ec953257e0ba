// What a driver process that is about to be killed tells its parent.
#pragma once

#include <cstdint>

#include "lum.h"
#include "node.h"

namespace stress {

inline constexpr int record_fd = 3;  // the driver writes records here
inline constexpr int go_fd = 4;      // and waits here for one byte before it starts the storm

enum class crash_event : uint32_t {
  recovered,  // `cfg` is what the port came back with
  ready,      // every port has been updated: its configuration is in the module again
  asked,      // lum_set_hw_info is about to be called
  answered,   // it has returned `result`
};

// Written in one piece, so that a kill leaves whole records only.
struct crash_record {
  crash_event event;
  uint32_t port;
  uint32_t sub_port;
  cerrno result;
  uint64_t changed_bits;
  lum_port_cfg cfg;  // asked: the values asked for
};

// The driver's node: two ports of each memory map, on module files.
inline node_shape crash_shape(const std::filesystem::path &folder) {
  node_shape shape;
  shape.slots = 1;
  shape.ports_per_slot = 4;
  shape.module_files = true;
  shape.folder = folder;
  return shape;
}

}  // namespace stress
