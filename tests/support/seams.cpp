#include "seams.h"

#include <linux/futex.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>

#include "blocks.h"
#include "director.h"
#include "lum.h"
#include "provisioning_step.h"
#include "record.h"
#include "script.h"
#include "spin.h"

namespace support {
namespace {

constexpr unsigned polling_seconds = 5;
constexpr const char *skip_file = "/tmp/skip_dom_fetch";

// Never destroyed: the polling thread outlives main.
struct seam_state {
  spin lock;
  std::map<const pthread_mutex_t *, std::string> watched;
  std::atomic<unsigned> hidden{0};
  std::atomic<bool> skip_file_there{false};
  // The polling thread has slept `asleep` times and been woken `woken` times.
  std::atomic<uint32_t> asleep{0};
  std::atomic<uint32_t> woken{0};
};

seam_state &seams() {
  static seam_state &state = *new seam_state;
  return state;
}

// Whether any mutex is watched; keeps the lock out of the way of everybody's mutexes.
constinit std::atomic<bool> watching{false};

void note_mutex(const char *call, const pthread_mutex_t *mutex) {
  if (!watching.load(std::memory_order_relaxed)) return;
  std::string name;
  {
    const std::lock_guard hold(seams().lock);
    const auto found = seams().watched.find(mutex);
    if (found == seams().watched.end()) return;
    name = found->second;
  }
  record_call(call, {name});
}

void sleep_at_the_gate() {
  seam_state &state = seams();
  const uint32_t ticket = state.asleep.fetch_add(1) + 1;
  state.asleep.notify_all();
  for (uint32_t woken = state.woken.load(); woken < ticket; woken = state.woken.load()) {
    state.woken.wait(woken);
  }
}

void wait_for_sleep(uint32_t times) {
  seam_state &state = seams();
  for (uint32_t asleep = state.asleep.load(); asleep < times; asleep = state.asleep.load()) {
    state.asleep.wait(asleep);
  }
}

std::string members_of(const sigset_t *set) {
  std::string members;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (sigismember(set, signal) == 1) {
      members += (members.empty() ? "" : " ") + std::to_string(signal - SIGRTMIN);
    }
  }
  return "{" + members + "}";
}

}  // namespace

polling_gate polling;
constinit thread_director *director = nullptr;
std::function<cerrno(lum_port_data *, uint32_t)> &provisioning_step =
    *new std::function<cerrno(lum_port_data *, uint32_t)>;

void watch(const pthread_mutex_t &mutex, const std::string &name) {
  const std::lock_guard hold(seams().lock);
  seams().watched[&mutex] = name;
  watching.store(true);
}

context_hidden::context_hidden() { seams().hidden.fetch_add(1); }
context_hidden::~context_hidden() { seams().hidden.fetch_sub(1); }

void set_skip_file(bool there) { seams().skip_file_there.store(there); }

// The thread is asleep when it has slept once more often than it has been woken.
void polling_gate::wait_asleep() { wait_for_sleep(seams().woken.load() + 1); }

void polling_gate::start_cycle() {
  wait_asleep();
  seams().woken.fetch_add(1);
  seams().woken.notify_all();
}

void polling_gate::run_cycle() {
  start_cycle();
  wait_asleep();
}

void polling_gate::run_cycles(unsigned count) {
  for (unsigned i = 0; i < count; ++i) run_cycle();
}

}  // namespace support

using namespace support;

extern "C" {

void *__real_calloc(size_t count, size_t size);
void __real_free(void *block);
cerrno __real_lum_construct_if_name(uint32_t iftype, uint32_t rack, uint32_t slot,
                                    uint32_t instance, uint32_t port, uint32_t reserved,
                                    uint32_t sub_port, char *dst);
cerrno __real_lum_process_provisioning(lum_port_data *port, uint32_t port_handle);
cerrno __real_lum_ctx_derive_hw_nodeid(uint32_t rack, uint32_t slot, uint32_t instance);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*start)(void *), void *argument);
int __real_pthread_sigmask(int how, const sigset_t *set, sigset_t *old);
int __real_sigemptyset(sigset_t *set);
int __real_sigaddset(sigset_t *set, int signal);
int __real_pthread_mutex_trylock(pthread_mutex_t *mutex);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __real_pthread_mutexattr_init(pthread_mutexattr_t *attributes);
int __real_pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int type);
unsigned __real_sleep(unsigned seconds);
int __real_stat(const char *path, struct stat *found);
lum_ctx *__real_lum_get_ctx(void);
long __real_syscall(long number, ...);

void *__wrap_calloc(size_t count, size_t size) {
  if (thread_director *chooser = directed()) chooser->at_seam();
  if (planned("calloc")) {
    errno = ENOMEM;
    return nullptr;
  }
  void *block = __real_calloc(count, size);
  note_block(block, count * size);
  return block;
}

void __wrap_free(void *block) {
  if (thread_director *chooser = directed()) chooser->at_seam();
  forget_block(block);
  __real_free(block);
}

cerrno __wrap_lum_construct_if_name(uint32_t iftype, uint32_t rack, uint32_t slot,
                                    uint32_t instance, uint32_t port, uint32_t reserved,
                                    uint32_t sub_port, char *dst) {
  if (const auto code = planned("lum_construct_if_name")) return *code;
  return __real_lum_construct_if_name(iftype, rack, slot, instance, port, reserved, sub_port, dst);
}

cerrno __wrap_lum_process_provisioning(lum_port_data *port, uint32_t port_handle) {
  if (provisioning_step) return provisioning_step(port, port_handle);
  return __real_lum_process_provisioning(port, port_handle);
}

cerrno __wrap_lum_ctx_derive_hw_nodeid(uint32_t rack, uint32_t slot, uint32_t instance) {
  note("lum_ctx_derive_hw_nodeid", rack, slot, instance);
  if (const auto code = planned("lum_ctx_derive_hw_nodeid")) return *code;
  return __real_lum_ctx_derive_hw_nodeid(rack, slot, instance);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*start)(void *), void *argument) {
  record_call("pthread_create", {shown(static_cast<const void *>(attributes)), shown(argument)});
  if (const auto code = planned("pthread_create")) return static_cast<int>(*code);
  return __real_pthread_create(thread, attributes, start, argument);
}

// Signals are shown as their distance from SIGRTMIN.
int __wrap_pthread_sigmask(int how, const sigset_t *set, sigset_t *old) {
  record_call("pthread_sigmask",
              {how == SIG_BLOCK ? "SIG_BLOCK" : "other", set == nullptr ? "null" : members_of(set),
               shown(static_cast<const void *>(old))});
  if (const auto code = planned("pthread_sigmask")) return static_cast<int>(*code);
  return __real_pthread_sigmask(how, set, old);
}

int __wrap_sigemptyset(sigset_t *set) {
  if (const auto code = planned("sigemptyset")) return static_cast<int>(*code);
  return __real_sigemptyset(set);
}

int __wrap_sigaddset(sigset_t *set, int signal) {
  if (const auto code = planned("sigaddset")) return static_cast<int>(*code);
  return __real_sigaddset(set, signal);
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t *mutex) {
  note_mutex("pthread_mutex_trylock", mutex);
  if (const auto code = planned("pthread_mutex_trylock", mutex)) {
    return static_cast<int>(*code);
  }
  if (thread_director *chooser = directed()) return chooser->trylock(mutex);
  return __real_pthread_mutex_trylock(mutex);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  note_mutex("pthread_mutex_lock", mutex);
  if (const auto code = planned("pthread_mutex_lock", mutex)) {
    return static_cast<int>(*code);
  }
  if (thread_director *chooser = directed()) return chooser->lock(mutex);
  return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  note_mutex("pthread_mutex_unlock", mutex);
  if (const auto code = planned("pthread_mutex_unlock", mutex)) {
    return static_cast<int>(*code);
  }
  if (thread_director *chooser = directed()) return chooser->unlock(mutex);
  return __real_pthread_mutex_unlock(mutex);
}

int __wrap_pthread_mutexattr_init(pthread_mutexattr_t *attributes) {
  if (const auto code = planned("pthread_mutexattr_init")) return static_cast<int>(*code);
  return __real_pthread_mutexattr_init(attributes);
}

int __wrap_pthread_mutexattr_settype(pthread_mutexattr_t *attributes, int type) {
  if (const auto code = planned("pthread_mutexattr_settype")) {
    return static_cast<int>(*code);
  }
  return __real_pthread_mutexattr_settype(attributes, type);
}

unsigned __wrap_sleep(unsigned seconds) {
  if (seconds != polling_seconds) return __real_sleep(seconds);
  note("sleep", seconds);
  if (thread_director *chooser = directed()) {
    chooser->sleep();
    return 0;
  }
  sleep_at_the_gate();
  return 0;
}

int __wrap_usleep(useconds_t microseconds) {
  note("usleep", microseconds);
  return 0;
}

int __wrap_stat(const char *path, struct stat *found) {
  if (std::strcmp(path, skip_file) != 0) return __real_stat(path, found);
  note("stat", path);
  if (seams().skip_file_there.load()) return 0;
  errno = ENOENT;
  return -1;
}

lum_ctx *__wrap_lum_get_ctx(void) {
  return seams().hidden.load() != 0 ? nullptr : __real_lum_get_ctx();
}

// What an atomic's wait and notify come to.
long __wrap_syscall(long number, ...) {
  va_list list;
  va_start(list, number);
  long arguments[6];
  for (long &argument : arguments) argument = va_arg(list, long);
  va_end(list);
  thread_director *chooser = number == SYS_futex ? directed() : nullptr;
  if (chooser != nullptr) {
    const auto *word = reinterpret_cast<const uint32_t *>(arguments[0]);
    switch (arguments[1] & FUTEX_CMD_MASK) {
      case FUTEX_WAIT:
        return chooser->futex_wait(word, static_cast<uint32_t>(arguments[2]));
      case FUTEX_WAKE:
        return chooser->futex_wake(word, static_cast<int>(arguments[2]));
      default:
        break;
    }
  }
  return __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                        arguments[4], arguments[5]);
}

}  // extern "C"
