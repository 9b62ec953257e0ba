#include "traces/guarded_mapping.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace lum_linux {
namespace {

struct guarded {
  std::atomic<bool> is_taken = false;
  std::atomic<bool> is_lost = false;
  std::atomic<void *> begin = nullptr;  // set last
  std::atomic<size_t> size = 0;
};

constexpr size_t most_mappings = 128;
constinit std::array<guarded, most_mappings> mappings;
struct sigaction handled_before = {};

bool replace(uintptr_t at) {
  for (guarded &one : mappings) {
    void *const mapped = one.begin.load(std::memory_order_acquire);
    const auto begin = reinterpret_cast<uintptr_t>(mapped);
    const size_t size = one.size.load(std::memory_order_relaxed);
    if (mapped == nullptr || at < begin || at - begin >= size) continue;
    one.is_lost.store(true, std::memory_order_relaxed);
    // The bare call: what a sanitizer has before it is not for the handler of a signal.
    return ::syscall(SYS_mmap, mapped, size, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != -1;
  }
  return false;
}

// On the thread that touched the place. Nothing here but what a signal's handler may call.
void on_bus_error(int signal, siginfo_t *info, void *context) {
  const int error = errno;
  const bool is_replaced = replace(reinterpret_cast<uintptr_t>(info->si_addr));
  errno = error;
  if (is_replaced) return;
  if ((handled_before.sa_flags & SA_SIGINFO) != 0) {
    handled_before.sa_sigaction(signal, info, context);
  } else if (handled_before.sa_handler == SIG_DFL || handled_before.sa_handler == SIG_IGN) {
    ::sigaction(signal, &handled_before, nullptr);  // and it comes again
  } else {
    handled_before.sa_handler(signal);
  }
}

bool is_handled() {
  static const bool done = [] {
    struct sigaction handled = {};
    handled.sa_sigaction = on_bus_error;
    handled.sa_flags = SA_SIGINFO;
    ::sigemptyset(&handled.sa_mask);
    return ::sigaction(SIGBUS, nullptr, &handled_before) == 0 &&
           ::sigaction(SIGBUS, &handled, nullptr) == 0;
  }();
  return done;
}

}  // namespace

guarded_mapping::guarded_mapping(void *begin, size_t size) {
  if (!is_handled()) return;
  for (size_t i = 0; i < mappings.size(); ++i) {
    guarded &one = mappings[i];
    if (one.is_taken.exchange(true)) continue;
    one.is_lost = false;
    one.size.store(size, std::memory_order_relaxed);
    one.begin.store(begin, std::memory_order_release);
    place_ = static_cast<int>(i);
    return;
  }
}

guarded_mapping::~guarded_mapping() {
  if (place_ < 0) return;
  guarded &one = mappings[static_cast<size_t>(place_)];
  one.begin = nullptr;
  one.is_taken = false;
}

bool guarded_mapping::is_lost() const {
  return place_ >= 0 && mappings[static_cast<size_t>(place_)].is_lost.load();
}

}  // namespace lum_linux
