/* Preloaded into lumd by the tests: whoever calls CALL on the file or socket PATH does not come
 * back for as long as there is a file PATH.CALL.stalls, as where a disk, a bus, a line or whoever
 * reads does not answer. CALL is read, write, pread, pwrite, sync, ioctl, connect or send; a stream
 * that is written to or flushed counts as write. The thread in the call has that file open, so that
 * a test sees in the process's descriptors that the call is under way. It goes to the real one
 * afterwards. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

/* Not by the calls themselves, some of which are played. */
static int is_there(const char *path) { return syscall(SYS_faccessat, AT_FDCWD, path, F_OK) == 0; }

static void stall(const char *path, const char *call) {
  char marker[PATH_MAX];
  if (path[0] != '/') return;
  if (snprintf(marker, sizeof marker, "%s.%s.stalls", path, call) >= (int)sizeof marker) return;
  const long opened = syscall(SYS_openat, AT_FDCWD, marker, O_RDONLY | O_CLOEXEC);
  if (opened < 0) return;
  const struct timespec moment = {0, 10000000};
  while (is_there(marker)) nanosleep(&moment, NULL);
  syscall(SYS_close, (int)opened);
}

/* Where a descriptor leads to. What has no name, such as a pipe, never stalls. */
static void stall_for(int descriptor, const char *call) {
  char link[64], path[PATH_MAX];
  snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  const ssize_t length = readlink(link, path, sizeof path - 1);
  if (length <= 0) return;
  path[length] = 0;
  stall(path, call);
}

static void stall_for_address(const struct sockaddr *address, socklen_t length, const char *call) {
  char path[sizeof(struct sockaddr_un)];
  const size_t before = offsetof(struct sockaddr_un, sun_path);
  if (address == NULL || length <= before || length > sizeof path) return;
  if (address->sa_family != AF_UNIX) return;
  memcpy(path, (const char *)address + before, length - before);
  path[length - before] = 0;
  stall(path, call);
}

/* To whom it is connected, unless the message says where to. */
static void stall_for_reader(int descriptor, const struct msghdr *message) {
  struct sockaddr_un peer = {0};
  socklen_t length = sizeof peer;
  if (message->msg_name != NULL) {
    stall_for_address(message->msg_name, message->msg_namelen, "send");
  } else if (getpeername(descriptor, (struct sockaddr *)&peer, &length) == 0) {
    stall_for_address((const struct sockaddr *)&peer, length, "send");
  }
}

/* `name` with these parameters, which begins by `stalling`. */
#define STALLS(result, name, parameters, stalling, ...)          \
  result name parameters {                                       \
    static result(*real) parameters = NULL;                      \
    if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, #name); \
    stalling;                                                    \
    return real(__VA_ARGS__);                                    \
  }

STALLS(ssize_t, read, (int file, void *bytes, size_t size), stall_for(file, "read"), file, bytes,
       size)
STALLS(ssize_t, write, (int file, const void *bytes, size_t size), stall_for(file, "write"), file,
       bytes, size)
STALLS(ssize_t, pread, (int file, void *bytes, size_t size, off_t at), stall_for(file, "pread"),
       file, bytes, size, at)
STALLS(ssize_t, pread64, (int file, void *bytes, size_t size, off64_t at), stall_for(file, "pread"),
       file, bytes, size, at)
STALLS(ssize_t, pwrite, (int file, const void *bytes, size_t size, off_t at),
       stall_for(file, "pwrite"), file, bytes, size, at)
STALLS(ssize_t, pwrite64, (int file, const void *bytes, size_t size, off64_t at),
       stall_for(file, "pwrite"), file, bytes, size, at)
STALLS(int, fsync, (int file), stall_for(file, "sync"), file)
STALLS(int, fdatasync, (int file), stall_for(file, "sync"), file)
STALLS(size_t, fwrite, (const void *restrict bytes, size_t size, size_t count, FILE *restrict to),
       stall_for(fileno(to), "write"), bytes, size, count, to)
STALLS(int, fflush, (FILE * to), if (to != NULL) stall_for(fileno(to), "write"), to)
STALLS(int, connect, (int socket, __CONST_SOCKADDR_ARG to, socklen_t length),
       stall_for_address(to.__sockaddr__, length, "connect"), socket, to, length)
STALLS(ssize_t, sendmsg, (int socket, const struct msghdr *message, int flags),
       stall_for_reader(socket, message), socket, message, flags)

int ioctl(int file, unsigned long request, ...) {
  static int (*real)(int, unsigned long, void *) = NULL;
  if (real == NULL) *(void **)&real = dlsym(RTLD_NEXT, "ioctl");
  va_list arguments;
  va_start(arguments, request);
  void *const argument = va_arg(arguments, void *);
  va_end(arguments);
  stall_for(file, "ioctl");
  return real(file, request, argument);
}
