#include "base/fatal.h"

#include <cstdio>
#include <cstdlib>

#include "tern.h"

namespace lum {

void fatal(const char *condition, const char *area, int line, const char *function) {
  std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", area, line, function, condition);
  tern_syslog(0, "%s:%d: %s: Assertion `%s' failed.\n", area, line, function, condition);
  std::abort();
}

}  // namespace lum
