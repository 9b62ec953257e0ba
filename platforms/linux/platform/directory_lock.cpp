#include "platform/directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace lum_linux {

int directory_lock::acquire(const std::filesystem::path &directory) {
  unique_fd file(::open((directory / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return errno;
  file_ = std::move(file);
  return 0;
}

}  // namespace lum_linux
