#include "base/locks.h"

#include "base/shared.h"

namespace lum {
namespace {

std::uint64_t this_thread() { return static_cast<std::uint64_t>(pthread_self()); }

}  // namespace

void make_error_checking(pthread_mutex_t &mutex) {
  mutex = pthread_mutex_t{};
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return;
  if (pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) == 0) {
    pthread_mutex_init(&mutex, &attributes);
  }
  pthread_mutexattr_destroy(&attributes);
}

int port_lock::try_take() {
  const int rc = pthread_mutex_trylock(&port_.port_mutex);
  if (rc == 0 && shared_load(port_.mutex_kept_by) != 0) {
    pthread_mutex_unlock(&port_.port_mutex);
    return EBUSY;
  }
  return rc;
}

int port_lock::wait() {
  if (shared_load(port_.mutex_kept_by) == 0) {
    const int rc = pthread_mutex_lock(&port_.port_mutex);
    if (rc != 0 || shared_load(port_.mutex_kept_by) == 0) return rc;
    pthread_mutex_unlock(&port_.port_mutex);
  }
  return shared_load(port_.mutex_kept_by) == this_thread() ? EDEADLK : ECANCELED;
}

int port_lock::release() {
  const std::uint64_t keeper = shared_load(port_.mutex_kept_by);
  if (keeper == this_thread()) {
    shared_store(port_.mutex_kept_by, 0);
    return 0;
  }
  if (keeper != 0) return EPERM;
  return pthread_mutex_unlock(&port_.port_mutex);
}

void port_lock::keep() {
  shared_store(port_.mutex_kept_by, this_thread());
  pthread_mutex_unlock(&port_.port_mutex);
}

}  // namespace lum
