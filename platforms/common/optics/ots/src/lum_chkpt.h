// What the area offers to the rest of the library beyond its exported calls.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "lum.h"

namespace lum {

// Holds the stored record of one port, by its rsip, against other threads. Held over the disk while
// a record is made, saved or deleted, and by the completion of a deletion from before its port
// leaves the database until the port's record is gone: a save that comes later sees that its port
// has gone, and a port that is created again finds nothing of the one before it. No callback is
// made under it; a storage that calls back is not held up by itself.
class record_hold {
 public:
  explicit record_hold(std::uint32_t rsip);
  ~record_hold();
  record_hold(const record_hold &) = delete;
  record_hold &operator=(const record_hold &) = delete;

 private:
  bool enter();

  const std::uint32_t rsip_;
  const pthread_t thread_ = pthread_self();
  record_hold *next_ = nullptr;
};

}  // namespace lum
