// Deletions that are refused, never answered and repeated, and a look at what they keep: from a
// deletion until the port goes, every other thread finds its mutex busy, unless the deletion's
// thread deletes again or the port is created again.
#pragma once

#include <atomic>
#include <cstdint>

#include "crew.h"
#include "findings.h"
#include "node.h"

namespace stress {

struct look_counts {
  uint64_t while_kept;     // mutexes tried while kept
  uint64_t after_its_end;  // mutexes tried after a deletion whose thread has ended
};

class deletions {
 public:
  deletions(node &node, findings &found) : node_(node), found_(found) {}

  // Deletes one port, maybe several times, each time from a thread that ends, with batches refused
  // and dropped, and brings it back.
  void from_threads_that_end(worker &self);
  // Deletes ports again and again from one thread, so that it frees some of what it keeps.
  void from_one_thread(worker &self);
  // Tries the mutex of any port.
  void try_mutex(worker &self);
  look_counts counts() const;

 private:
  // What a look at a port's mutex has shown; `found` says whether the port was there.
  struct look {
    bool found = false;
    bool kept = false;
    bool asked = false;
    int rc = 0;
  };
  look look_at(const port_place &port) const;
  void delete_once(const port_place &port, worker &self);
  void bring_back(const port_place &port, worker &self);

  node &node_;
  findings &found_;
  std::atomic<uint64_t> while_kept_{0};
  std::atomic<uint64_t> after_its_end_{0};
};

}  // namespace stress
