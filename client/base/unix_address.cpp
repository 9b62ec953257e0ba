#include "base/unix_address.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace lum_client {

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

}  // namespace lum_client
