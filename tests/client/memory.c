/* Preloaded into lumd by the tests: some of its allocations fail, from the one on whose number
 * stands in the file of LUM_TEST_MEMORY. The file holds six numbers of 64 bits, in the machine's
 * order: which allocation fails, 0 for none; how many fail in a row from it on; how many there have
 * been; how many of them have failed; how often what is free has been given back; how many blocks
 * are taken and not freed. Whoever writes it counts from anew by setting the third to 0. What the
 * system maps, stacks of threads among it, is left alone. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

struct plan {
  _Atomic uint64_t fails;
  _Atomic uint64_t in_a_row;
  _Atomic uint64_t asked;
  _Atomic uint64_t failed;
  _Atomic uint64_t given_back;
  _Atomic int64_t blocks;
};
static struct plan *plan = NULL;

__attribute__((constructor)) static void begin(void) {
  const char *name = getenv("LUM_TEST_MEMORY");
  if (name == NULL) return;
  const int file = open(name, O_RDWR | O_CLOEXEC);
  if (file < 0) return;
  void *shared = mmap(NULL, sizeof *plan, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (shared != MAP_FAILED) plan = shared;
}

/* The driver begins with its signals; what is allocated before is the loader's. */
static atomic_bool driver_has_begun = 0;

sighandler_t signal(int number, sighandler_t handler) {
  static sighandler_t (*real)(int, sighandler_t) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "signal");
  driver_has_begun = 1;
  return real(number, handler);
}

static int fails(void) {
  if (!driver_has_begun) return 0;
  if (plan == NULL || plan->fails == 0) return 0;
  const uint64_t number = atomic_fetch_add(&plan->asked, 1) + 1;
  if (number < plan->fails || number - plan->fails >= plan->in_a_row) return 0;
  atomic_fetch_add(&plan->failed, 1);
  errno = ENOMEM;
  return 1;
}

static void *counted(void *block) {
  if (plan != NULL && block != NULL) atomic_fetch_add(&plan->blocks, 1);
  return block;
}

void *malloc(size_t size) { return fails() ? NULL : counted(__libc_malloc(size)); }
void *calloc(size_t count, size_t size) {
  return fails() ? NULL : counted(__libc_calloc(count, size));
}
void *realloc(void *block, size_t size) {
  if (fails()) return NULL;
  void *moved = __libc_realloc(block, size);
  return block == NULL ? counted(moved) : moved;
}
void *memalign(size_t alignment, size_t size) {
  return fails() ? NULL : counted(__libc_memalign(alignment, size));
}
void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void **block, size_t alignment, size_t size) {
  void *taken = memalign(alignment, size);
  if (taken == NULL) return ENOMEM;
  *block = taken;
  return 0;
}
void free(void *block) {
  if (plan != NULL && block != NULL) atomic_fetch_sub(&plan->blocks, 1);
  __libc_free(block);
}

int malloc_trim(size_t pad) {
  static int (*real)(size_t) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "malloc_trim");
  if (plan != NULL) atomic_fetch_add(&plan->given_back, 1);
  return real(pad);
}
