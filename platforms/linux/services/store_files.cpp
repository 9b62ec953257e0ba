#include "services/store_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string>
#include <string_view>
#include <system_error>

#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

namespace fs = std::filesystem;

std::string time_stamp() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc = {};
  gmtime_r(&now, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc);
  return text.data();
}

bool has_log(const fs::path &file) {
  std::error_code ignored;
  return fs::exists(log_of(file), ignored);
}

}  // namespace

void sync_folder(const fs::path &folder) {
  const unique_fd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) fsync(fd.get());
}

int error_of_opening(const fs::path &file) {
  const unique_fd fd(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  return fd ? 0 : errno;
}

file_mark mark_of(const fs::path &file) {
  struct stat found = {};
  if (::stat(file.c_str(), &found) != 0) return {};
  return {found.st_dev, found.st_ino, found.st_size};
}

fs::path log_of(const fs::path &file) { return file.string() + "-wal"; }

bool can_be_read_alone(const fs::path &file) {
  std::error_code error;
  const auto unfinished = fs::file_size(file.string() + "-journal", error);
  return error == std::errc::no_such_file_or_directory || (!error && unfinished == 0);
}

// Both are without locks, which take a file that can be written to. "immutable" would leave a
// write-ahead log unread, and the other one wants it to be there.
std::string reading_address(const fs::path &file) {
  std::string address = "file://";
  for (const char c : file.string()) {
    if (c == '%' || c == '?' || c == '#') {
      constexpr std::string_view digits = "0123456789abcdef";
      address += {'%', digits[static_cast<unsigned char>(c) >> 4], digits[c & 0xf]};
    } else {
      address += c;
    }
  }
  return address + (has_log(file) ? "?vfs=unix-none" : "?immutable=1");
}

fs::path set_aside(const fs::path &file) {
  const std::string base = file.string() + ".set-aside-" + time_stamp();
  fs::path target = base;
  for (int n = 2; fs::exists(target); ++n) target = base + "." + std::to_string(n);
  std::error_code error;
  for (const char *suffix : {"-wal", "-journal", "-shm", "-changes"}) {
    fs::rename(file.string() + suffix, target.string() + suffix, error);
  }
  fs::rename(file, target, error);
  if (error) {
    errno = error.value();
    return {};
  }
  sync_folder(file.parent_path());
  return target;
}

}  // namespace lum_linux
