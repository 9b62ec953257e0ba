// What the area offers to the rest of the library beyond its exported calls.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <mutex>

#include "lum.h"

namespace lum {

// Holds the stored record of one port, by its rsip, against other threads. Held over the disk while
// a record is made, saved or deleted, and by the completion of a deletion from before its port
// leaves the database until the port's record is gone: a save that comes later sees that its port
// has gone, and a port that is created again finds nothing of the one before it. No callback is
// made under it; it is not held against its own thread.
class record_hold {
 public:
  explicit record_hold(std::uint32_t rsip);
  record_hold(std::uint32_t rsip, std::try_to_lock_t);
  ~record_hold();
  explicit operator bool() const { return held_; }
  record_hold(const record_hold &) = delete;
  record_hold &operator=(const record_hold &) = delete;

 private:
  bool enter();

  const std::uint32_t rsip_;
  const pthread_t thread_ = pthread_self();
  record_hold *next_ = nullptr;
  bool held_ = false;
};

// Waits for the completion of a deletion that has taken the port out of the database to be done
// with what the port leaves behind.
void wait_for_deletion(std::uint32_t rsip);

}  // namespace lum
