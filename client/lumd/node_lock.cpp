#include "node_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>

#include <cerrno>
#include <cstring>

namespace lumd {

std::optional<node_lock> node_lock::take(const std::filesystem::path &state_directory,
                                         std::string &error) {
  std::error_code code;
  std::filesystem::create_directories(state_directory, code);
  if (code) {
    error = fmt::format("{}: {}", state_directory.native(), code.message());
    return std::nullopt;
  }
  const std::filesystem::path file = state_directory / "lumd.lock";
  const int descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (descriptor < 0) {
    error = fmt::format("{}: {}", file.native(), std::strerror(errno));
    return std::nullopt;
  }
  // The kernel lets go of the lock when the process ends; the descriptor is never closed.
  if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    error = errno == EWOULDBLOCK
                ? fmt::format("another driver runs on {}", state_directory.native())
                : fmt::format("{}: {}", file.native(), std::strerror(errno));
    return std::nullopt;
  }
  return node_lock();
}

}  // namespace lumd
