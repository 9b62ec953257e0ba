/* Preloaded into lumd by the tests: the seconds that the library sleeps between polling cycles are
 * as long as LUM_TEST_SECOND_MS says, and it sleeps on for as long as the file of LUM_TEST_HOLD is
 * there. Everything else keeps the real time. The switch that pauses all polling is not the
 * machine's but the file of LUM_TEST_PAUSE. With LUM_TEST_HANG set, whoever opens or looks for a
 * file hangs for as long as there is another of its name and ".hangs", as on a bus that does not
 * answer, and whoever takes away something from a folder in the same way. Whoever looks for
 * anything in the folder of LUM_TEST_DEAD_DISK hangs while there is a file of that name and
 * ".hangs", as on a disk that does not answer. While there is a file of a folder's name and ".full"
 * the folder's disk has as many bytes left as that file is long. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

static void nap(long milliseconds) {
  const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&time, NULL);
}

unsigned sleep(unsigned seconds) {
  const char *length = getenv("LUM_TEST_SECOND_MS");
  const char *hold = getenv("LUM_TEST_HOLD");
  nap((long)seconds * (length == NULL ? 1000 : atol(length)));
  while (hold != NULL && access(hold, F_OK) == 0) nap(10);
  return 0;
}

/* The wall clock stands a day back for as long as the file of LUM_TEST_YESTERDAY is there, and a
 * day ahead for as long as that of LUM_TEST_TOMORROW is. */
static int is_set(const char *variable) {
  const char *file = getenv(variable);
  return file != NULL && access(file, F_OK) == 0;
}

int clock_gettime(clockid_t which, struct timespec *now) {
  static int (*real)(clockid_t, struct timespec *) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "clock_gettime");
  const int result = real(which, now);
  if (result != 0 || which != CLOCK_REALTIME) return result;
  if (is_set("LUM_TEST_YESTERDAY")) now->tv_sec -= 24 * 60 * 60;
  if (is_set("LUM_TEST_TOMORROW")) now->tv_sec += 24 * 60 * 60;
  return result;
}

static const char *own(const char *path) {
  const char *pause = getenv("LUM_TEST_PAUSE");
  return pause != NULL && strcmp(path, "/tmp/skip_dom_fetch") == 0 ? pause : path;
}

static int real_access(const char *path, int mode) {
  static int (*real)(const char *, int) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "access");
  return real(path, mode);
}

/* While there is a file of this name and ".hangs". */
static void hang_for(const char *path) {
  char marker[PATH_MAX];
  if (snprintf(marker, sizeof marker, "%s.hangs", path) >= (int)sizeof marker) return;
  while (real_access(marker, F_OK) == 0) nap(10);
}

static void hang_on_dead_disk(const char *path) {
  const char *disk = getenv("LUM_TEST_DEAD_DISK");
  if (disk == NULL || path == NULL) return;
  const size_t length = strlen(disk);
  if (strncmp(path, disk, length) != 0) return;
  if (path[length] == 0 || path[length] == '/') hang_for(disk);
}

int access(const char *path, int mode) {
  hang_on_dead_disk(path);
  return real_access(own(path), mode);
}

/* `name` stands for the call itself, with the path as its first argument. */
#define LOOKS(result, name, parameters, ...)                     \
  result name parameters {                                       \
    static result(*real) parameters = NULL;                      \
    if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, #name); \
    hang_on_dead_disk(path);                                     \
    return real(__VA_ARGS__);                                    \
  }

LOOKS(int, stat, (const char *restrict path, struct stat *restrict found), own(path), found)
LOOKS(int, lstat, (const char *restrict path, struct stat *restrict found), path, found)
LOOKS(int, stat64, (const char *restrict path, struct stat64 *restrict found), path, found)
LOOKS(int, lstat64, (const char *restrict path, struct stat64 *restrict found), path, found)
LOOKS(int, mkdir, (const char *path, mode_t mode), path, mode)
LOOKS(int, unlink, (const char *path), path)
LOOKS(int, rename, (const char *path, const char *to), path, to)
LOOKS(DIR *, opendir, (const char *path), path)
LOOKS(FILE *, fopen, (const char *restrict path, const char *restrict how), path, how)
LOOKS(FILE *, fopen64, (const char *restrict path, const char *restrict how), path, how)

int statvfs(const char *restrict path, struct statvfs *restrict found) {
  static int (*real)(const char *restrict, struct statvfs *restrict) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "statvfs");
  const int result = real(path, found);
  char marker[PATH_MAX];
  struct stat left;
  const int length = snprintf(marker, sizeof marker, "%s.full", path);
  if (result == 0 && length < (int)sizeof marker && stat(marker, &left) == 0) {
    found->f_frsize = 1;
    found->f_bavail = (fsblkcnt_t)left.st_size;
  }
  return result;
}

/* The looks for modules' files too. */
int statx(int folder, const char *restrict path, int flags, unsigned mask,
          struct statx *restrict found) {
  static int (*real)(int, const char *restrict, int, unsigned, struct statx *restrict) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "statx");
  hang_on_dead_disk(path);
  if (getenv("LUM_TEST_HANG") != NULL) hang_for(path);
  return real(folder, path, flags, mask, found);
}

static mode_t mode_in(va_list *arguments) { return va_arg(*arguments, mode_t); }

#define OPENS(name)                                              \
  int name(const char *path, int flags, ...) {                   \
    static int (*real)(const char *, int, ...) = NULL;           \
    if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, #name); \
    va_list arguments;                                           \
    va_start(arguments, flags);                                  \
    const mode_t mode = mode_in(&arguments);                     \
    va_end(arguments);                                           \
    hang_on_dead_disk(path);                                     \
    if (getenv("LUM_TEST_HANG") != NULL) hang_for(path);         \
    return real(path, flags, mode);                              \
  }

OPENS(open)
OPENS(open64)

/* In a folder that is a descriptor's. */
int unlinkat(int folder, const char *path, int flags) {
  static int (*real)(int, const char *, int) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "unlinkat");
  char name[PATH_MAX];
  if (getenv("LUM_TEST_HANG") != NULL &&
      snprintf(name, sizeof name, "/proc/self/fd/%d/%s", folder, path) < (int)sizeof name) {
    hang_for(name);
  }
  return real(folder, path, flags);
}
