#include "base/locks.h"

#include <atomic>
#include <limits>

namespace lum {
namespace {

// Threads are told apart by numbers that no later thread gets.
std::uint64_t this_thread() {
  static std::atomic<std::uint64_t> last{0};
  static thread_local const std::uint64_t number = last.fetch_add(1) + 1;
  return number;
}

// Keeps a mutex that is being made anew.
constexpr std::uint64_t nobody = std::numeric_limits<std::uint64_t>::max();

std::atomic_ref<std::uint64_t> keeper_of(lum_port_data &port) {
  return std::atomic_ref(port.mutex_kept_by);
}

// Counts a thread in while it is at a mutex. It counts itself before it looks at the keeper, and
// whoever changes the keeper looks at the count afterwards: one of the two sees the other.
class counted {
 public:
  explicit counted(std::uint16_t &count) : count_(count) { count_.fetch_add(1); }
  ~counted() {
    if (count_.fetch_sub(1) == 1) count_.notify_all();
  }
  counted(const counted &) = delete;
  counted &operator=(const counted &) = delete;

 private:
  std::atomic_ref<std::uint16_t> count_;
};

void wait_until_nobody_is_counted(std::uint16_t &count) {
  const std::atomic_ref counted(count);
  for (std::uint16_t now = counted.load(); now != 0; now = counted.load()) counted.wait(now);
}

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

bool port_lock::is_kept() const { return keeper_of(port_).load() != 0; }

int port_lock::try_take() {
  if (is_kept()) return EBUSY;  // not counted: whoever waits for the count comes on
  const counted here(port_.mutex_visitors);
  if (is_kept()) return EBUSY;
  const int rc = pthread_mutex_trylock(&port_.port_mutex);
  if (rc != 0 || !is_kept()) return rc;
  pthread_mutex_unlock(&port_.port_mutex);  // free only for those who wait, to be sent back
  return EBUSY;
}

int port_lock::wait() {
  if (!is_kept()) {
    const counted here(port_.mutex_waiters);
    if (!is_kept()) {
      const int rc = pthread_mutex_lock(&port_.port_mutex);
      if (rc != 0 || !is_kept()) return rc;
      pthread_mutex_unlock(&port_.port_mutex);
    }
  }
  barred_ = true;
  return keeper_of(port_).load() == this_thread() ? EDEADLK : ECANCELED;
}

int port_lock::release() {
  const counted here(port_.mutex_visitors);
  std::uint64_t keeper = keeper_of(port_).load();
  if (keeper != 0) {
    if (keeper != this_thread()) return EPERM;
    if (!keeper_of(port_).compare_exchange_strong(keeper, 0)) return EPERM;
  }
  return pthread_mutex_unlock(&port_.port_mutex);
}

void port_lock::keep() {
  const counted here(port_.mutex_visitors);
  keeper_of(port_).store(this_thread());
  if (std::atomic_ref(port_.mutex_waiters).load() == 0) return;
  if (pthread_mutex_unlock(&port_.port_mutex) != 0) return;
  wait_until_nobody_is_counted(port_.mutex_waiters);
  if (pthread_mutex_trylock(&port_.port_mutex) != EBUSY) return;
  ptd_set_mutex_block(&port_.port_mutex, deletion_site.function, deletion_site.line);
  pthread_mutex_lock(&port_.port_mutex);
  ptd_unset_mutex_block(&port_.port_mutex);
}

// Nobody waits for a kept mutex, and who looks at it now turns away from it.
void port_lock::renew() {
  std::uint64_t keeper = keeper_of(port_).load();
  if (keeper == 0 || keeper == nobody) return;
  if (!keeper_of(port_).compare_exchange_strong(keeper, nobody)) return;
  wait_until_nobody_is_counted(port_.mutex_visitors);
  wait_until_nobody_is_counted(port_.mutex_waiters);
  make_error_checking(port_.port_mutex);
  keeper_of(port_).store(0);
}

}  // namespace lum
