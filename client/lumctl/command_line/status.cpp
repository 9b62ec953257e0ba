#include "command_line/status.h"

#include <fmt/format.h>

#include "base/output.h"
#include "terminal/printable.h"

namespace lumctl {

int fail(int status, const std::string &why) {
  lum_client::complain(fmt::format("lumctl: {}\n", printable(why)));
  return status;
}

}  // namespace lumctl
