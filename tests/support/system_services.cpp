// Thread ids, error texts, system log, deadlock-monitor marks and the bounded copy.
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "bounded_copy.h"
#include "cerr.h"
#include "deadlock_marks.h"
#include "ptd.h"
#include "record.h"
#include "script.h"
#include "tern.h"

namespace support {
namespace {

constinit std::atomic<const pthread_mutex_t *> last_set{nullptr};
constinit std::atomic<const pthread_mutex_t *> last_unset{nullptr};

}  // namespace

deadlock_marks last_marks() { return {last_set, last_unset}; }

}  // namespace support

using namespace support;

// Neither is recorded: every trace line calls the first, every failure the second.
int32_t tern_gettid() { return static_cast<int32_t>(syscall(SYS_gettid)); }

const char *cerr_strerror(cerrno rc) {
  static thread_local char text[32];
  std::snprintf(text, sizeof text, "error %u", rc);
  return text;
}

void tern_syslog(int32_t facility, const char *format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  note("tern_syslog", facility, static_cast<const char *>(text));
}

void ptd_set_mutex_block(pthread_mutex_t *mutex, const char *function, uint32_t line) {
  last_set = mutex;
  note("ptd_set_mutex_block", function, line);
}

void ptd_unset_mutex_block(pthread_mutex_t *mutex) {
  last_unset = mutex;
  note("ptd_unset_mutex_block");
}

cerrno strncpy_s(char *destination, size_t size, const char *source, size_t count) {
  record_call("strncpy_s", {shown(size), shown(count)});
  if (destination == nullptr || size == 0) return EINVAL;
  destination[0] = '\0';
  if (source == nullptr || count >= size) return EINVAL;
  const size_t length = strnlen(source, count);
  std::memcpy(destination, source, length);
  destination[length] = '\0';
  return script.answer("strncpy_s");
}
