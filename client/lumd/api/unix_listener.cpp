#include "api/unix_listener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lumd {
namespace {

const std::string remedy = "api_socket in the description or --socket names another";

const sockaddr *as_sockaddr(const sockaddr_un &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

// A failure that says nothing of another driver or of this process.
bool is_of_folder(int code) {
  switch (code) {
    case EACCES:
    case EPERM:
    case EROFS:
    case ENOSPC:
    case EDQUOT:
    case EIO:
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
      return true;
    default:
      return false;
  }
}

// A driver that has been stopped does not take connections, and is there all the same.
bool somebody_is_at(const sockaddr_un &address) {
  const lum_client::descriptor probe(
      ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (probe.get() < 0) return true;
  return ::connect(probe.get(), as_sockaddr(address), sizeof address) == 0 ||
         (errno != ECONNREFUSED && errno != ENOENT);
}

}  // namespace

int unix_listener::open(const std::filesystem::path &path, std::string &error) {
  const auto fail = [&](const std::string &why) {
    error = path.native() + ": " + why;
    return -1;
  };
  const auto fail_with = [&](int code) {
    folder_is_unusable_ = is_of_folder(code);
    return fail(std::strerror(code));
  };
  address_.emplace(path);
  if (const std::error_code problem = address_->problem()) {
    folder_is_unusable_ = is_of_folder(problem.value());
    return fail(problem == std::errc::is_a_directory ? "this names a folder, not a socket"
                                                     : problem.message());
  }
  const sockaddr_un address = address_->socket_address();
  const int folder = address_->folder();
  const char *const name = address_->name().c_str();

  struct stat found = {};
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) == 0) {
    if (!S_ISSOCK(found.st_mode)) return fail("there is something else than a socket; " + remedy);
    if (somebody_is_at(address)) return fail("another driver answers on this socket; " + remedy);
    if (::unlinkat(folder, name, 0) != 0) return fail_with(errno);
  }
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail_with(errno);
  // Nobody can connect between bind and listen, so the mode is right from the first connection on.
  if (::bind(fd, as_sockaddr(address), sizeof address) != 0 ||
      ::fchmodat(folder, name, S_IRUSR | S_IWUSR, 0) != 0 || ::listen(fd, SOMAXCONN) != 0) {
    const int code = errno;
    ::close(fd);
    return fail_with(code);
  }
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) == 0) inode_ = found.st_ino;
  return fd;
}

void unix_listener::remove() {
  struct stat found = {};
  if (inode_ != 0 &&
      ::fstatat(address_->folder(), address_->name().c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
      found.st_ino == inode_) {
    ::unlinkat(address_->folder(), address_->name().c_str(), 0);
  }
  inode_ = 0;
}

}  // namespace lumd
