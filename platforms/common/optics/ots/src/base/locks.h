// Mutexes are taken by trying first; a thread that has to wait says so to the deadlock monitor.
#pragma once

#include <pthread.h>

#include <cerrno>
#include <cstdint>

#include "lum.h"
#include "ptd.h"

namespace lum {

// Who takes a lock, as the deadlock monitor is told. Where the line is a bare number it is a name
// that the monitor's readers know, whatever line the call stands on.
struct lock_site {
  const char *function;
  std::uint32_t line;
};

// Who keeps a port's mutex.
inline constexpr lock_site deletion_site = {"lum_delete_ports", 625};

// Clears `mutex` and makes it error-checking; when that fails it is left cleared.
void make_error_checking(pthread_mutex_t &mutex);

// A mutex of the library.
class library_lock {
 public:
  explicit library_lock(pthread_mutex_t &mutex) : mutex_(mutex) {}
  int try_take() { return pthread_mutex_trylock(&mutex_); }
  int wait() { return pthread_mutex_lock(&mutex_); }
  int release() { return pthread_mutex_unlock(&mutex_); }
  void keep() {}  // stays taken
  bool barred() const { return false; }
  pthread_mutex_t *mutex() { return &mutex_; }

 private:
  pthread_mutex_t &mutex_;
};

// A port's mutex. A deletion keeps it until the port is gone, which may be never when the batch is
// refused or not answered, and its thread may end before. So beside the mutex, which stays taken,
// stands the number of the thread that keeps it: whoever meets it comes back at once, the keeping
// thread with EDEADLK, as from any error-checking mutex, every other with ECANCELED. Only the
// keeper can release it. The system's own owner would not do: it hands thread ids out again.
class port_lock {
 public:
  explicit port_lock(lum_port_data &port) : port_(port) {}
  int try_take();
  int wait();
  int release();
  // By the holder. Those who wait are sent back first, for which the mutex is free for a moment.
  void keep();
  // Makes a kept mutex anew: free, and error-checking.
  void renew();
  // Whether wait() has come back because a deletion keeps the mutex.
  bool barred() const { return barred_; }
  pthread_mutex_t *mutex() { return &port_.port_mutex; }

 private:
  bool is_kept() const;

  lum_port_data &port_;
  bool barred_ = false;
};

// What becomes of a lock that could not be taken. Most users release it anyway; users of a module
// go on without it, and their own release at the end is then refused.
enum class after_failure { release_anyway, leave };

// Holds a lock for a scope. error() tells why it could not be taken, barred() whether because a
// deletion keeps it.
template <typename Lock>
class hold {
 public:
  template <typename Target>
  hold(Target &target, lock_site site, after_failure policy = after_failure::release_anyway)
      : lock_(target) {
    error_ = lock_.try_take();
    if (error_ == EBUSY) {
      ptd_set_mutex_block(lock_.mutex(), site.function, site.line);
      error_ = lock_.wait();
      ptd_unset_mutex_block(lock_.mutex());
    }
    held_ = error_ == 0;
    if (!held_ && policy == after_failure::release_anyway) lock_.release();
  }
  hold(const hold &) = delete;
  hold &operator=(const hold &) = delete;
  ~hold() {
    if (held_) lock_.release();
  }

  int error() const { return error_; }
  bool barred() const { return lock_.barred(); }

  // Releases the lock now and returns the mutex's answer; may be called again, to be refused. What
  // a deletion keeps is refused also to the thread of the deletion.
  int release() {
    held_ = false;
    return lock_.barred() ? EPERM : lock_.release();
  }

  // Leaves the lock taken beyond the scope.
  void keep() {
    if (held_) lock_.keep();
    held_ = false;
  }

 private:
  Lock lock_;
  int error_;
  bool held_;
};

using library_hold = hold<library_lock>;
using port_hold = hold<port_lock>;

}  // namespace lum
