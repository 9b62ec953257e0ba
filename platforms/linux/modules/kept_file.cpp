#include "modules/kept_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace lum_linux {
namespace {

uint64_t number_in(const struct statx &info) {
  uint64_t number = info.stx_ino;
  const auto mix = [&number](uint64_t value) {
    number = (number ^ value) * 0x9E3779B97F4A7C15ull;
    number ^= number >> 29;
  };
  mix(uint64_t{info.stx_dev_major} << 32 | info.stx_dev_minor);
  if (info.stx_mask & STATX_BTIME) {
    mix(static_cast<uint64_t>(info.stx_btime.tv_sec));
    mix(info.stx_btime.tv_nsec);
  }
  return number;
}

constexpr unsigned asked_for = STATX_INO | STATX_BTIME | STATX_TYPE;

}  // namespace

std::optional<uint64_t> number_of_file(const std::filesystem::path &file) {
  struct statx info = {};
  if (::statx(AT_FDCWD, file.c_str(), 0, asked_for, &info) != 0) return std::nullopt;
  return number_in(info);
}

// The file before stays open until there is another: no other can have its number meanwhile.
// O_NONBLOCK: whatever stands in the file's place must not hold up the caller.
int kept_file::open(const std::filesystem::path &file, int &error) {
  if (fd_) {
    const auto now = number_of_file(file);
    if (now && *now == number_) return fd_.get();
  }
  unique_fd opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct statx info = {};
  if (!opened || ::statx(opened.get(), "", AT_EMPTY_PATH, asked_for, &info) != 0) {
    error = errno;
    return -1;
  }
  if (!S_ISREG(info.stx_mode)) {
    error = EIO;
    return -1;
  }
  fd_ = std::move(opened);
  number_ = number_in(info);
  return fd_.get();
}

int kept_file::open_while_named(const std::filesystem::path &file, int &error) {
  struct stat info = {};
  const bool is_named = fd_ && ::fstat(fd_.get(), &info) == 0 && info.st_nlink != 0;
  return is_named ? fd_.get() : open(file, error);
}

}  // namespace lum_linux
