#include "command_line/status.h"

#include <fmt/format.h>

#include "terminal/printable.h"

namespace lumctl {

int fail(int status, const std::string &why) {
  fmt::print(stderr, "lumctl: {}\n", printable(why));
  return status;
}

}  // namespace lumctl
