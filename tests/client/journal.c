/* Preloaded into lumd by the tests: what is meant for the journal's socket goes to the one of
 * LUM_TEST_JOURNAL, which plays it, and what is meant for the system log's to that of
 * LUM_TEST_SYSLOG. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

/* The socket that plays the one at `path`, or NULL. */
static const char *played_for(const char *path) {
  if (strcmp(path, "/run/systemd/journal/socket") == 0) return getenv("LUM_TEST_JOURNAL");
  if (strcmp(path, "/dev/log") == 0) return getenv("LUM_TEST_SYSLOG");
  return NULL;
}

/* Whether `address` is one that is played; `played` becomes the one to use in its place. */
static int is_played(const struct sockaddr *address, struct sockaddr_un *played) {
  if (address == NULL || address->sa_family != AF_UNIX) return 0;
  const char *place = played_for(((const struct sockaddr_un *)address)->sun_path);
  if (place == NULL) return 0;
  memset(played, 0, sizeof *played);
  played->sun_family = AF_UNIX;
  strncpy(played->sun_path, place, sizeof played->sun_path - 1);
  return 1;
}

/* Of the type that the C library has for it. */
int connect(int descriptor, __CONST_SOCKADDR_ARG address, socklen_t length) {
  static int (*real)(int, const struct sockaddr *, socklen_t) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "connect");
  struct sockaddr_un played;
  if (!is_played(address.__sockaddr__, &played)) {
    return real(descriptor, address.__sockaddr__, length);
  }
  return real(descriptor, (const struct sockaddr *)&played, sizeof played);
}

ssize_t sendmsg(int descriptor, const struct msghdr *message, int flags) {
  static ssize_t (*real)(int, const struct msghdr *, int) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "sendmsg");
  struct sockaddr_un played;
  if (!is_played(message->msg_name, &played)) return real(descriptor, message, flags);
  struct msghdr to_played = *message;
  to_played.msg_name = &played;
  to_played.msg_namelen = sizeof played;
  return real(descriptor, &to_played, flags);
}
