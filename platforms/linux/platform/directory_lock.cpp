#include "platform/directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace lum_linux {

int directory_lock::acquire(const std::filesystem::path &directory) {
  unique_fd itself(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!itself || ::flock(itself.get(), LOCK_EX | LOCK_NB) != 0) return errno;
  unique_fd file(
      ::open((directory / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return errno;
  directory_ = std::move(itself);
  file_ = std::move(file);
  return 0;
}

void directory_lock::release() {
  file_ = unique_fd();
  directory_ = unique_fd();
}

}  // namespace lum_linux
