/* Preloaded into lumctl by the tests: whoever looks for the address of LUM_TEST_DEAD_NAME does not
 * come back, as where the name server does not answer, and neither does who looks for the name of a
 * user. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <netdb.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void stay(void) {
  for (;;) pause();
}

int getaddrinfo(const char *restrict name, const char *restrict service,
                const struct addrinfo *restrict hints, struct addrinfo **restrict found) {
  static int (*real)(const char *, const char *, const struct addrinfo *, struct addrinfo **) =
      NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "getaddrinfo");
  const char *dead = getenv("LUM_TEST_DEAD_NAME");
  if (dead != NULL && name != NULL && strcmp(dead, name) == 0) stay();
  return real(name, service, hints, found);
}

struct passwd *getpwuid(uid_t user) {
  static struct passwd *(*real)(uid_t) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "getpwuid");
  if (getenv("LUM_TEST_DEAD_NAME") != NULL) stay();
  return real(user);
}
