/* Preloaded into lumd by the tests: the seconds that the library sleeps between polling cycles are
 * as long as LUM_TEST_SECOND_MS says, and it sleeps on for as long as the file of LUM_TEST_HOLD is
 * there. Everything else keeps the real time. The switch that pauses all polling is not the
 * machine's but the file of LUM_TEST_PAUSE. With LUM_TEST_HANG set, whoever opens a file hangs
 * for as long as there is another of its name and ".hangs", as on a bus that does not answer. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
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

/* The wall clock stands a day back for as long as the file of LUM_TEST_YESTERDAY is there. */
int clock_gettime(clockid_t which, struct timespec *now) {
  static int (*real)(clockid_t, struct timespec *) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "clock_gettime");
  const int result = real(which, now);
  const char *yesterday = getenv("LUM_TEST_YESTERDAY");
  if (result == 0 && which == CLOCK_REALTIME && yesterday != NULL && access(yesterday, F_OK) == 0) {
    now->tv_sec -= 24 * 60 * 60;
  }
  return result;
}

static const char *own(const char *path) {
  const char *pause = getenv("LUM_TEST_PAUSE");
  return pause != NULL && strcmp(path, "/tmp/skip_dom_fetch") == 0 ? pause : path;
}

int access(const char *path, int mode) {
  static int (*real)(const char *, int) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "access");
  return real(own(path), mode);
}

int stat(const char *restrict path, struct stat *restrict found) {
  static int (*real)(const char *, struct stat *) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "stat");
  return real(own(path), found);
}

int open(const char *path, int flags, ...) {
  static int (*real)(const char *, int, ...) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  char marker[PATH_MAX];
  if (getenv("LUM_TEST_HANG") != NULL &&
      snprintf(marker, sizeof marker, "%s.hangs", path) < (int)sizeof marker) {
    while (access(marker, F_OK) == 0) nap(10);
  }
  return real(path, flags, mode);
}
