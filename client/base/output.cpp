#include "base/output.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace lum_client {
namespace {

// Also where the signal is ignored: who is started so finds the pipe broken and lives.
void end_by_broken_pipe() {
  ::signal(SIGPIPE, SIG_DFL);
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
  ::raise(SIGPIPE);
}

}  // namespace

void print(std::string_view text) {
  errno = 0;
  const bool is_whole = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) == 0 && is_whole) return;
  const int code = errno != 0 ? errno : EIO;
  if (code == EPIPE) end_by_broken_pipe();
  throw std::system_error(code, std::generic_category(), "cannot write to standard output");
}

void complain(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace lum_client
