// Keeps the memory of removed port nodes until nobody can still look at them.
//
// The database is walked and searched without its mutex. So a thread that looks at nodes does it
// inside a reader section, and a removed node is freed once every section that was open at its
// removal has been left. Sections cost two atomic stores, never wait, and may be nested.
#pragma once

#include <cstdint>

#include "lum.h"

namespace lum {

// A node as the library allocates it.
struct port_node : lum_port_node_info {
  std::uint32_t
      in_handle_index;       // in index 1; written under the database mutex and the handle lock
  std::uint64_t retired_at;  // not 0: removed; written under the database mutex
  port_node *next_retired;   // the keeper's
};

class ports_reader {
 public:
  ports_reader();
  ~ports_reader();
  ports_reader(const ports_reader &) = delete;
  ports_reader &operator=(const ports_reader &) = delete;
};

// Whether this thread is inside a section.
bool in_reader_section();

// Takes over a node that is in no index any more; its port mutex goes with it. Call inside a reader
// section: the memory goes at the earliest when that one ends.
void retire_node(port_node *node);

struct keeper_counts {
  std::uint64_t retired;
  std::uint64_t freed;
};
keeper_counts node_keeper_counts();

}  // namespace lum
