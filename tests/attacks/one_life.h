// A whole life of a small node: started, its ports created, polled, set, tested, replayed, one of
// them deleted, stopped; while one call after another is made to fail.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>

#include "failing_calls.h"
#include "lum_linux/node_description.h"

namespace attacks {

inline constexpr uint32_t ports = 2;  // of slot 1; the second one is deleted in each life
inline constexpr uint32_t sub_ports = 2;

// What a life leaves for the test that has had it: in memory that processes share.
struct ledger {
  uint32_t asked[ports][sub_ports];         // the latest setting asked for
  uint32_t acknowledged[ports][sub_ports];  // and the latest that the library took
  uint32_t deleted[ports][sub_ports];       // the latest that went with its port and was not told
                                            // of as not deleted; it must not come back
  uint64_t calls;                           // of what was attacked
  int64_t blocks;                           // of memory outstanding at the end
  bool refused;                             // the start was, and another had to be made
  char wrong[256];                          // what was found wrong; else empty
};

// The description of a node whose folder has its modules in it.
lum_linux::node_description small_node_in(const std::filesystem::path &folder);

// To be called once in a process. The attack begins with the platform's start and lasts until the
// port has been deleted; what was lost to it is made again afterwards, and has to work. Or it lasts
// until the platform has stopped, or the process ends with it, as a killed one does.
void live(const lum_linux::node_description &node, const attack &planned, ledger &left);

// The next life on the same store: everything that was acknowledged is there.
void live_on(const lum_linux::node_description &node, ledger &left);

}  // namespace attacks
