// The serial lock.
#include "base/locks.h"
#include "base/trace.h"
#include "lum_api/lum_api.h"

using namespace lum;

static constexpr char trace_area[] = "lum_api";

void lum_serial_lock(std::uint32_t, const char *name) {
  library_hold lock(serial_mutex, {"lum_serial_lock", 799});
  if (lock.error() != 0) {
    LUM_ERROR(46, "serial lock failed with rc %d for %s\n", lock.error(), or_empty(name));
  }
  lock.keep();
}

void lum_serial_unlock(std::uint32_t, const char *name) {
  if (const int rc = library_lock(serial_mutex).release(); rc != 0) {
    LUM_INFO(47, "serial unlock failed with rc %d for %s\n", rc, or_empty(name));
  }
}
