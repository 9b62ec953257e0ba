#include "seams.h"

#include <dlfcn.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>

#include "chkpt.h"
#include "ctrace.h"
#include "wavl.h"

namespace {

using counter = std::atomic<std::uint64_t>;

counter allocations;
counter flushes;
counter writes;
counter tree_calls;
counter checkpoint_calls;
counter trace_lines;

// The function that this program's own stands before.
template <typename Function>
Function *behind(Function *, const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// Counts a call and makes it.
#define COUNTED(counter, function, ...)                       \
  do {                                                        \
    static auto *const real = behind(&(function), #function); \
    (counter).fetch_add(1, std::memory_order_relaxed);        \
    return real(__VA_ARGS__);                                 \
  } while (false)

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);

void *malloc(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void *calloc(std::size_t count, std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
void *realloc(void *block, std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}

int fsync(int file) { COUNTED(flushes, fsync, file); }
int fdatasync(int file) { COUNTED(flushes, fdatasync, file); }
ssize_t write(int file, const void *data, std::size_t size) {
  COUNTED(writes, write, file, data, size);
}
ssize_t pwrite(int file, const void *data, std::size_t size, off_t at) {
  COUNTED(writes, pwrite, file, data, size, at);
}
ssize_t pwrite64(int file, const void *data, std::size_t size, off64_t at) {
  COUNTED(writes, pwrite64, file, data, size, at);
}

int wavl_insert_thread(wavl_tree *tree, std::uint32_t index, void *node) {
  COUNTED(tree_calls, wavl_insert_thread, tree, index, node);
}
void *wavl_search(wavl_tree *tree, const void *key_node, std::uint32_t index) {
  COUNTED(tree_calls, wavl_search, tree, key_node, index);
}
void *wavl_get_first(wavl_tree *tree, std::uint32_t index) {
  COUNTED(tree_calls, wavl_get_first, tree, index);
}
void *wavl_get_next(wavl_tree *tree, const void *node, std::uint32_t index) {
  COUNTED(tree_calls, wavl_get_next, tree, node, index);
}
int wavl_running(const wavl_tree *tree) { COUNTED(tree_calls, wavl_running, tree); }

cerrno chkpt_mapkey(std::uint64_t table, std::uint32_t key, std::uint64_t *id, std::uint32_t node) {
  COUNTED(checkpoint_calls, chkpt_mapkey, table, key, id, node);
}
cerrno chkpt_create(std::uint64_t table, std::uint32_t key, std::uint64_t *id) {
  COUNTED(checkpoint_calls, chkpt_create, table, key, id);
}
cerrno chkpt_save(std::uint64_t table, std::uint64_t id, const void *record, std::uint32_t size) {
  COUNTED(checkpoint_calls, chkpt_save, table, id, record, size);
}
cerrno chkpt_delete(std::uint64_t table, std::uint64_t id) {
  COUNTED(checkpoint_calls, chkpt_delete, table, id);
}

cerrno ctrace_internal(ctrace_handle, std::uint32_t, std::uint32_t, std::uint32_t, const char *,
                       const char *, ...) {
  trace_lines.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

}  // extern "C"

counts::tally counts::now() {
  return {allocations, flushes, writes, tree_calls, checkpoint_calls, trace_lines};
}

cerrno (*counts::real_ctrace_internal())(ctrace_handle, std::uint32_t, std::uint32_t, std::uint32_t,
                                         const char *, const char *, ...) {
  return behind(&ctrace_internal, "ctrace_internal");
}
