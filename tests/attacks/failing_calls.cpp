#include "failing_calls.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <iterator>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);
}

namespace attacks {
namespace {

constinit std::atomic<target> attacked{target::nothing};
constinit std::atomic<uint64_t> asked{0};
constinit std::atomic<int64_t> outstanding{0};
constinit attack plan;
constinit char folder[256] = "";
constinit std::atomic<bool> is_below[4096] = {};  // by file descriptor

// The tests' program itself has this, so that it costs no memory.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool spared = false;

bool fails(target what) {
  if (attacked.load(std::memory_order_relaxed) != what) return false;
  const uint64_t number = asked.fetch_add(1) + 1;
  if (number < plan.nth || (number > plan.nth && !plan.from_then_on)) return false;
  errno = plan.error;
  return true;
}

bool memory_fails() { return !spared && fails(target::memory); }

bool known(int file) { return file >= 0 && static_cast<size_t>(file) < std::size(is_below); }

bool fails_on(int file, target what) { return known(file) && is_below[file] && fails(what); }

bool is_attacked(const char *path) {
  return folder[0] != '\0' && std::strncmp(path, folder, std::strlen(folder)) == 0;
}

int open_at(int place, const char *path, int flags, mode_t mode) {
  const bool below = is_attacked(path);
  if (below && fails(target::open)) return -1;
  const auto file = static_cast<int>(syscall(SYS_openat, place, path, flags, mode));
  if (known(file)) is_below[file] = below;
  return file;
}

}  // namespace

const char *name_of(target what) {
  constexpr const char *names[] = {"nothing", "memory", "read",    "write",
                                   "sync",    "open",   "truncate"};
  return names[static_cast<size_t>(what)];
}

const char *name_of(ending how) {
  constexpr const char *names[] = {"and recovers", "while it stops too", "and is killed"};
  return names[static_cast<size_t>(how)];
}

void attack_files_below(const char *name) { std::strncpy(folder, name, sizeof folder - 1); }

void begin(const attack &planned) {
  plan = planned;
  asked = 0;
  attacked = planned.what;
}

uint64_t end() {
  attacked = target::nothing;
  return asked;
}

int64_t blocks_outstanding() { return outstanding; }

void spare_this_thread() { spared = true; }
struck::struck() { spared = false; }
struck::~struck() { spared = true; }

}  // namespace attacks

using namespace attacks;

extern "C" {

void *malloc(size_t size) {
  if (memory_fails()) return nullptr;
  outstanding.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
  if (memory_fails()) return nullptr;
  outstanding.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) {
  if (memory_fails()) return nullptr;
  if (block == nullptr) outstanding.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}
void *memalign(size_t alignment, size_t size) {
  if (memory_fails()) return nullptr;
  outstanding.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, size);
}
void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void **block, size_t alignment, size_t size) {
  void *taken = memalign(alignment, size);
  if (taken == nullptr) return ENOMEM;
  *block = taken;
  return 0;
}
void free(void *block) {
  if (block != nullptr) outstanding.fetch_sub(1, std::memory_order_relaxed);
  __libc_free(block);
}

ssize_t read(int file, void *to, size_t size) {
  return fails_on(file, target::read) ? -1 : syscall(SYS_read, file, to, size);
}
ssize_t pread(int file, void *to, size_t size, off_t offset) {
  return fails_on(file, target::read) ? -1 : syscall(SYS_pread64, file, to, size, offset);
}
ssize_t pread64(int file, void *to, size_t size, off64_t offset) {
  return pread(file, to, size, offset);
}
ssize_t write(int file, const void *from, size_t size) {
  return fails_on(file, target::write) ? -1 : syscall(SYS_write, file, from, size);
}
ssize_t pwrite(int file, const void *from, size_t size, off_t offset) {
  return fails_on(file, target::write) ? -1 : syscall(SYS_pwrite64, file, from, size, offset);
}
ssize_t pwrite64(int file, const void *from, size_t size, off64_t offset) {
  return pwrite(file, from, size, offset);
}
int fsync(int file) {
  return fails_on(file, target::sync) ? -1 : static_cast<int>(syscall(SYS_fsync, file));
}
int fdatasync(int file) {
  return fails_on(file, target::sync) ? -1 : static_cast<int>(syscall(SYS_fdatasync, file));
}
int ftruncate(int file, off_t size) noexcept {
  return fails_on(file, target::truncate) ? -1
                                          : static_cast<int>(syscall(SYS_ftruncate, file, size));
}
int ftruncate64(int file, off64_t size) noexcept { return ftruncate(file, size); }

int open(const char *path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open_at(AT_FDCWD, path, flags, mode);
}
int open64(const char *path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open_at(AT_FDCWD, path, flags, mode);
}
int close(int file) {
  if (known(file)) is_below[file] = false;
  return static_cast<int>(syscall(SYS_close, file));
}

}  // extern "C"
