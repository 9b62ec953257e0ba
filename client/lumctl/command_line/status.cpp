#include "command_line/status.h"

#include <fmt/format.h>

namespace lumctl {

int fail(int status, const std::string &why) {
  fmt::print(stderr, "lumctl: {}\n", why);
  return status;
}

}  // namespace lumctl
