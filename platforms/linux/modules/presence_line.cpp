#include "modules/presence_line.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

constexpr std::string_view blanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

presence_line::presence_line(std::filesystem::path file, std::string value)
    : file_(std::move(file)), value_(std::move(value)) {}

// O_NONBLOCK: whatever stands in the file's place must not hold up the caller.
presence_reading presence_line::read() const {
  const unique_fd fd(::open(file_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat info = {};
  if (!fd || ::fstat(fd.get(), &info) != 0) return {static_cast<cerrno>(errno), false};
  if (!S_ISREG(info.st_mode)) return {EIO, false};  // reading may take what is somebody else's
  std::array<char, 4096> text;                      // the kernel's files hold a page at most
  const ssize_t count = ::read(fd.get(), text.data(), text.size());
  if (count < 0) return {static_cast<cerrno>(errno), false};
  return {0, trimmed({text.data(), static_cast<std::size_t>(count)}) == value_};
}

}  // namespace lum_linux
