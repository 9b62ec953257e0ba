// A module's memory in an `eeprom` file.
#include "lum_linux/module_memory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "modules/kept_file.h"
#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

// Codes of a missing file, and those that the kernel's driver gives for an empty cage.
cerrno code_of(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENXIO:
    case ENODEV:
    case EREMOTEIO:
      return module_absent;
    default:
      return static_cast<cerrno>(error);
  }
}

class file_memory final : public module_memory {
 public:
  explicit file_memory(std::filesystem::path file) : file_(std::move(file)) {}

  cerrno read(uint32_t page, uint32_t offset, std::span<uint8_t> out) override;
  cerrno write(uint32_t page, uint32_t offset, uint8_t value) override;
  bool present() override;
  cerrno place_code() override;
  std::string place() const override { return file_.parent_path().native(); }
  uint64_t insertion() override;
  std::string location() const override { return file_.native(); }
  std::string trouble() const override;

 private:
  int kept(cerrno &code);
  unique_fd open(int flags, cerrno &code) const;
  cerrno read_part(int fd, std::optional<uint32_t> page, std::size_t position,
                   std::span<uint8_t> out);
  cerrno miss(int fd, std::optional<uint32_t> page);

  // What an access looked for behind the end of the file.
  struct missing_part {
    std::optional<uint32_t> page;  // none: a part of the lower page
    std::size_t size = 0;          // the file's; 0: it shows none
  };

  std::filesystem::path file_;
  std::optional<missing_part> missing_;  // by the last access
  kept_file kept_;
  std::optional<uint64_t> accessed_;  // the number of the file of a read that was not asked for yet
};

// Whether the end of the file came first.
enum class end_of_file : uint8_t { not_met, met };

cerrno read_at(int fd, std::size_t position, std::span<uint8_t> out, end_of_file &end) {
  end = end_of_file::not_met;
  while (!out.empty()) {
    const ssize_t count = ::pread(fd, out.data(), out.size(), static_cast<off_t>(position));
    if (count < 0) {
      if (errno == EINTR) continue;
      return code_of(errno);
    }
    if (count == 0) {
      end = end_of_file::met;
      return module_failing;
    }
    out = out.subspan(static_cast<std::size_t>(count));
    position += static_cast<std::size_t>(count);
  }
  return module_ok;
}

// Bytes of the lower page and of an upper page lie apart unless the page is 0.
cerrno file_memory::read(uint32_t page, uint32_t offset, std::span<uint8_t> out) {
  missing_.reset();
  cerrno rc = module_ok;
  const int fd = kept(rc);
  if (fd < 0) return rc;
  const std::size_t lower =
      offset < module_page_size ? std::min<std::size_t>(out.size(), module_page_size - offset) : 0;
  rc = module_ok;
  if (lower > 0) rc = read_part(fd, {}, offset, out.first(lower));
  if (rc == module_ok && out.size() > lower) {
    const uint32_t upper = offset + static_cast<uint32_t>(lower);
    rc = read_part(fd, page, eeprom_position(page, upper), out.subspan(lower));
  }
  if (rc != module_ok) kept_.close();
  return rc;
}

cerrno file_memory::read_part(int fd, std::optional<uint32_t> page, std::size_t position,
                              std::span<uint8_t> out) {
  end_of_file end = end_of_file::not_met;
  const cerrno rc = read_at(fd, position, out, end);
  return end == end_of_file::met ? miss(fd, page) : rc;
}

cerrno file_memory::miss(int fd, std::optional<uint32_t> page) {
  struct stat info = {};
  missing_ = {page, ::fstat(fd, &info) == 0 ? static_cast<std::size_t>(info.st_size) : 0};
  return module_failing;
}

std::string file_memory::trouble() const {
  if (!missing_) return {};
  const std::string end = missing_->size > 0
                              ? fmt::format("the file ends after {} bytes", missing_->size)
                              : "the file ends before it";
  if (!missing_->page) return "the lower page is not all there: " + end;
  const bool has_part = missing_->size > eeprom_position(*missing_->page, module_page_size);
  return fmt::format("page {} is not {}there: {}", *missing_->page, has_part ? "all " : "", end);
}

cerrno file_memory::write(uint32_t page, uint32_t offset, uint8_t value) {
  missing_.reset();
  accessed_.reset();
  cerrno code = module_ok;
  const unique_fd fd = open(O_RDWR, code);
  if (!fd) return code;
  const std::size_t position = eeprom_position(page, offset);
  const auto half = offset < module_page_size ? std::nullopt : std::optional(page);
  struct stat info = {};
  if (::fstat(fd.get(), &info) != 0) return static_cast<cerrno>(errno);
  // A file of the kernel may show no size; there only a read tells where it ends.
  if (info.st_size == 0) {
    uint8_t there = 0;
    code = read_part(fd.get(), half, position, {&there, 1});
    if (code != module_ok) return code;
  } else if (position >= static_cast<std::size_t>(info.st_size)) {
    return miss(fd.get(), half);
  }
  ssize_t count = 0;
  do {
    count = ::pwrite(fd.get(), &value, 1, static_cast<off_t>(position));
  } while (count < 0 && errno == EINTR);
  if (count < 0) return code_of(errno);
  return count == 1 ? module_ok : module_failing;
}

bool file_memory::present() {
  cerrno code = module_ok;
  const int fd = kept(code);
  if (fd < 0) return code != module_absent && place_code() == module_ok;
  uint8_t first = 0;
  end_of_file end = end_of_file::not_met;
  code = read_at(fd, 0, {&first, 1}, end);
  if (code != module_ok) kept_.close();
  return code != module_absent;
}

cerrno file_memory::place_code() {
  const std::filesystem::path folder = file_.has_parent_path() ? file_.parent_path() : ".";
  const unique_fd fd(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!fd || ::faccessat(fd.get(), ".", X_OK, AT_EACCESS) != 0) return static_cast<cerrno>(errno);
  return module_ok;
}

// Of an access the file that it was made to; else asked for.
uint64_t file_memory::insertion() {
  if (const auto accessed = std::exchange(accessed_, std::nullopt)) return *accessed;
  return number_of_file(file_).value_or(0);
}

// For reading, of the file that is at the path now.
int file_memory::kept(cerrno &code) {
  int error = 0;
  const int fd = kept_.open(file_, error);
  accessed_.reset();
  if (fd < 0) {
    code = error == EIO ? module_failing : code_of(error);
  } else {
    accessed_ = kept_.number();
  }
  return fd;
}

// O_NONBLOCK: whatever stands in the file's place must not hold up the caller.
unique_fd file_memory::open(int flags, cerrno &code) const {
  unique_fd fd(::open(file_.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat info = {};
  if (!fd || ::fstat(fd.get(), &info) != 0) {
    code = code_of(errno);
    return unique_fd();
  }
  if (!S_ISREG(info.st_mode)) {
    code = module_failing;
    return unique_fd();
  }
  return fd;
}

}  // namespace

std::unique_ptr<module_memory> make_file_memory(std::filesystem::path file) {
  return std::make_unique<file_memory>(std::move(file));
}

}  // namespace lum_linux
