#include "node/log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace lumd {
namespace {

constexpr int patience_ms = 200;

}  // namespace

// What a pipe takes at once it takes without waiting, once it says that it takes anything.
void say_line(const std::string &line) {
  pollfd sink = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&sink, 1, patience_ms) != 1 || (sink.revents & POLLOUT) == 0) return;
  [[maybe_unused]] const ssize_t written =
      ::write(STDERR_FILENO, line.data(), std::min<std::size_t>(line.size(), PIPE_BUF));
}

}  // namespace lumd
