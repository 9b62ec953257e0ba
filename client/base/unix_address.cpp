#include "base/unix_address.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace lum_client {
namespace {

using std::chrono::microseconds;

// For connecting and sending on a socket that blocks. Zero would be for ever.
void bound_waits(int socket, std::chrono::steady_clock::duration bound) {
  constexpr microseconds second = std::chrono::seconds(1);
  const auto left = std::max(std::chrono::ceil<microseconds>(bound), microseconds(1));
  timeval limit = {};
  limit.tv_sec = left / second;
  limit.tv_usec = (left % second).count();
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

}  // namespace

unix_address::unix_address(const std::filesystem::path &socket)
    : folder_(::open(socket.has_parent_path() ? socket.parent_path().c_str() : ".",
                     O_PATH | O_DIRECTORY | O_CLOEXEC)),
      problem_(folder_.get() < 0 ? errno : 0, std::generic_category()),
      name_(socket.filename().native()),
      path_("/proc/self/fd/" + std::to_string(folder_.get()) + "/" + name_) {
  if (name_.empty()) problem_ = std::make_error_code(std::errc::is_a_directory);
  if (!problem_ && path_.size() >= sizeof(sockaddr_un::sun_path)) {
    problem_ = std::make_error_code(std::errc::filename_too_long);
  }
}

sockaddr_un unix_address::socket_address() const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (!problem_) std::memcpy(address.sun_path, path_.data(), path_.size());
  return address;
}

// One that does not block would not wait at all for a queue of connections that is full.
int unix_address::connect_within(std::chrono::milliseconds bound, std::error_code &error) const {
  const auto end = std::chrono::steady_clock::now() + bound;
  const sockaddr_un address = socket_address();
  const auto *const to = reinterpret_cast<const sockaddr *>(&address);
  const int connection = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  error = problem_;
  if (connection < 0) error.assign(errno, std::generic_category());
  while (!error) {
    bound_waits(connection, end - std::chrono::steady_clock::now());
    if (::connect(connection, to, sizeof address) == 0) return connection;
    if (errno == EINTR) continue;  // what was being waited for has not begun
    error.assign(errno == EAGAIN ? ETIMEDOUT : errno, std::generic_category());
  }
  if (connection >= 0) ::close(connection);
  return -1;
}

}  // namespace lum_client
