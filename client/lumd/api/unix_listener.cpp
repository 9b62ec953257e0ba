#include "api/unix_listener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lumd {
namespace {

bool fill(const std::string &path, sockaddr_un &address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.data(), path.size());
  return true;
}

const sockaddr *as_sockaddr(const sockaddr_un &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

}  // namespace

unix_listener::~unix_listener() {
  if (folder_ >= 0) ::close(folder_);
}

int unix_listener::open(const std::filesystem::path &path, std::string &error) {
  const auto fail = [&](const std::string &why) {
    error = path.native() + ": " + why;
    return -1;
  };
  const std::filesystem::path parent = path.has_parent_path() ? path.parent_path() : ".";
  folder_ = ::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder_ < 0) return fail(std::strerror(errno));
  name_ = path.filename().native();
  const std::string there = at_folder(name_);
  sockaddr_un address;
  if (!fill(there, address)) return fail("the name is too long for a socket");

  struct stat found = {};
  if (::fstatat(folder_, name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0) {
    if (!S_ISSOCK(found.st_mode)) return fail("there is something else than a socket");
    if (somebody_is_there(there)) return fail("another driver answers on this socket");
    ::unlinkat(folder_, name_.c_str(), 0);
  }
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail(std::strerror(errno));
  // Nobody can connect between bind and listen, so the mode is right from the first connection on.
  if (::bind(fd, as_sockaddr(address), sizeof address) != 0 ||
      ::fchmodat(folder_, name_.c_str(), S_IRUSR | S_IWUSR, 0) != 0 ||
      ::listen(fd, SOMAXCONN) != 0) {
    const int code = errno;
    ::close(fd);
    return fail(std::strerror(code));
  }
  if (::fstatat(folder_, name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0) inode_ = found.st_ino;
  return fd;
}

void unix_listener::remove() {
  struct stat found = {};
  if (inode_ != 0 && ::fstatat(folder_, name_.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
      found.st_ino == inode_) {
    ::unlinkat(folder_, name_.c_str(), 0);
  }
  inode_ = 0;
}

std::string unix_listener::at_folder(const std::string &name) const {
  return "/proc/self/fd/" + std::to_string(folder_) + "/" + name;
}

// A driver that has been stopped does not take connections, and is there all the same.
bool unix_listener::somebody_is_there(const std::string &there) const {
  sockaddr_un address;
  if (!fill(there, address)) return false;
  const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (probe < 0) return true;
  const bool refused = ::connect(probe, as_sockaddr(address), sizeof address) != 0 &&
                       (errno == ECONNREFUSED || errno == ENOENT);
  ::close(probe);
  return !refused;
}

}  // namespace lumd
