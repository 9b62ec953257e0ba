#include "modules/line_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// O_NONBLOCK: whatever stands in the file's place must not hold up the caller.
unique_fd open_file(const std::filesystem::path &file, int flags, cerrno &code) {
  unique_fd fd(::open(file.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat info = {};
  code = 0;
  if (!fd || ::fstat(fd.get(), &info) != 0) {
    code = static_cast<cerrno>(errno);
  } else if (!S_ISREG(info.st_mode)) {
    code = EIO;  // reading may take what is somebody else's
  }
  return fd;
}

}  // namespace

cerrno read_line_file(const std::filesystem::path &file, std::string &text) {
  cerrno code = 0;
  const unique_fd fd = open_file(file, O_RDONLY, code);
  if (code != 0) return code;
  std::array<char, 4096> bytes;  // the kernel's files hold a page at most
  const ssize_t count = ::read(fd.get(), bytes.data(), bytes.size());
  if (count < 0) return static_cast<cerrno>(errno);
  text = trimmed({bytes.data(), static_cast<std::size_t>(count)});
  return 0;
}

cerrno write_line_file(const std::filesystem::path &file, std::string_view text) {
  cerrno code = 0;
  const unique_fd fd = open_file(file, O_WRONLY | O_TRUNC, code);
  if (code != 0) return code;
  const ssize_t count = ::write(fd.get(), text.data(), text.size());
  if (count < 0) return static_cast<cerrno>(errno);
  return static_cast<std::size_t>(count) == text.size() ? 0 : static_cast<cerrno>(EIO);
}

}  // namespace lum_linux
