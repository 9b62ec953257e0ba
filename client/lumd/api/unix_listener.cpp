#include "api/unix_listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

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

// Of drivers that find a place left behind one takes it and the others look again: the right to do
// so is a file beside the socket that one process has locked. It goes with the right, and a process
// that is killed meanwhile loses both its lock and its claim.
class right_to_take {
 public:
  right_to_take(int folder, const std::string &socket) : folder_(folder), name_(socket + ".lock") {}
  ~right_to_take() {
    if (file_) ::unlinkat(folder_, name_.c_str(), 0);
  }
  right_to_take(const right_to_take &) = delete;
  right_to_take &operator=(const right_to_take &) = delete;

  // Returns 0, 11 when another driver has it for long, or what keeps the file from being made.
  int have() {
    constexpr std::chrono::milliseconds patience(1000), pause(10);
    for (std::chrono::milliseconds waited(0); waited < patience; waited += pause) {
      const int code = try_to_have();
      if (code != EWOULDBLOCK) return code;
      std::this_thread::sleep_for(pause);
    }
    return EWOULDBLOCK;
  }

 private:
  // A file that its owner has taken away meanwhile locks nobody out. Where files cannot be locked
  // the right is everybody's.
  int try_to_have() {
    file_.emplace(::openat(folder_, name_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW,
                           S_IRUSR | S_IWUSR));
    struct stat mine = {}, there = {};
    if (file_->get() < 0 || ::fstat(file_->get(), &mine) != 0) return give_up(errno);
    if (::flock(file_->get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
      return give_up(EWOULDBLOCK);
    }
    const bool is_there = ::fstatat(folder_, name_.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
                          there.st_ino == mine.st_ino;
    return is_there ? 0 : give_up(EWOULDBLOCK);
  }
  int give_up(int code) {
    file_.reset();
    return code;
  }

  const int folder_;
  const std::string name_;
  std::optional<lum_client::descriptor> file_;
};

}  // namespace

int unix_listener::open(const std::filesystem::path &path, std::optional<gid_t> group,
                        std::string &error) {
  path_ = path;
  address_.emplace(path);
  if (const std::error_code problem = address_->problem()) {
    const bool is_folder = problem == std::errc::is_a_directory;
    return fail(problem.value(),
                is_folder ? "this names a folder, not a socket" : problem.message(), error);
  }
  right_to_take right(address_->folder(), address_->name());
  if (const int code = right.have(); code == EWOULDBLOCK) {
    return fail(0, "another driver is just taking this socket; " + remedy, error);
  } else if (code != 0) {
    return fail(code, std::strerror(code), error);
  }
  return clear_place(error) ? listen(group, error) : -1;
}

// Takes away what an ended driver has left, and nothing else.
bool unix_listener::clear_place(std::string &error) {
  const char *const name = address_->name().c_str();
  struct stat found = {};
  if (::fstatat(address_->folder(), name, &found, AT_SYMLINK_NOFOLLOW) != 0) return true;
  if (!S_ISSOCK(found.st_mode)) {
    fail(0, "there is something else than a socket; " + remedy, error);
  } else if (somebody_is_at(address_->socket_address())) {
    fail(0, "another driver answers on this socket; " + remedy, error);
  } else if (::unlinkat(address_->folder(), name, 0) != 0) {
    fail(errno, std::strerror(errno), error);
  } else {
    return true;
  }
  return false;
}

// The mode that goes with it. A group that the process is not in cannot be given the socket.
mode_t unix_listener::give_to(std::optional<gid_t> group) {
  why_no_group_.clear();
  if (!group) return S_IRUSR | S_IWUSR;
  if (::fchownat(address_->folder(), address_->name().c_str(), static_cast<uid_t>(-1), *group,
                 AT_SYMLINK_NOFOLLOW) == 0) {
    return S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP;
  }
  why_no_group_ = std::strerror(errno);
  return S_IRUSR | S_IWUSR;
}

int unix_listener::listen(std::optional<gid_t> group, std::string &error) {
  const char *const name = address_->name().c_str();
  const sockaddr_un address = address_->socket_address();
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return fail(errno, std::strerror(errno), error);
  // Nobody can connect between bind and listen, so the mode is right from the first connection on.
  if (::bind(fd, as_sockaddr(address), sizeof address) != 0 ||
      ::fchmodat(address_->folder(), name, give_to(group), 0) != 0 ||
      ::listen(fd, SOMAXCONN) != 0) {
    const int code = errno;
    ::close(fd);
    return fail(code, std::strerror(code), error);
  }
  struct stat made = {};
  if (::fstatat(address_->folder(), name, &made, AT_SYMLINK_NOFOLLOW) == 0) inode_ = made.st_ino;
  return fd;
}

// `code` is the system's, or 0 for what is said of another driver.
int unix_listener::fail(int code, const std::string &why, std::string &error) {
  folder_is_unusable_ = is_of_folder(code);
  error = path_.native() + ": " + why;
  return -1;
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
