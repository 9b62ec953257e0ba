#include "lum_linux/image.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "images/image_compiler.h"
#include "modules/unique_fd.h"

namespace lum_linux {
namespace {

constexpr std::size_t max_image_description_bytes = 1 << 20;

// Reads a whole file of ordinary size, or says why not.
std::string read_text(const std::filesystem::path &file, std::string &error) {
  const unique_fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  std::string text;
  if (!fd) {
    error = std::strerror(errno);
    return text;
  }
  char buffer[16384];
  while (text.size() <= max_image_description_bytes) {
    const ssize_t count = ::read(fd.get(), buffer, sizeof(buffer));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) error = std::strerror(errno);
    if (count <= 0) return text;
    text.append(buffer, static_cast<std::size_t>(count));
  }
  error = fmt::format("more than {} bytes", max_image_description_bytes);
  return text;
}

bool write_all(int fd, const std::vector<uint8_t> &bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

// A name of its own for each writer, in the folder of the file.
std::filesystem::path temporary_name(const std::filesystem::path &file) {
  static std::atomic<uint32_t> counter{0};
  return file.string() + fmt::format(".{}.{}.new", ::getpid(), counter++);
}

}  // namespace

image_result read_module_image(const std::filesystem::path &description) {
  std::string error;
  const std::string text = read_text(description, error);
  if (error.empty()) return compile_module_image(text, description);
  problem_list problems(description.string());
  problems.add(0, fmt::format("cannot be read: {}; expected a module description in TOML", error));
  return {{}, problems.take()};
}

image_result compile_module_image(std::string_view text, const std::filesystem::path &file) {
  problem_list problems(file.string());
  module_image image;
  read_toml(text, "module", problems,
            [&](toml_table &root) { image = image_compiler(problems).compile(root); });
  if (problems.empty()) return {std::move(image), {}};
  return {{}, problems.take()};
}

bool write_module_image(const module_image &image, const std::filesystem::path &file,
                        std::string &error) {
  const std::filesystem::path temporary = temporary_name(file);
  const auto fail = [&] {
    error = fmt::format("{}: cannot be written: {}", file.string(), std::strerror(errno));
    ::unlink(temporary.c_str());
    return false;
  };
  unique_fd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!fd || !write_all(fd.get(), image.bytes) || ::fsync(fd.get()) != 0) return fail();
  if (::rename(temporary.c_str(), file.c_str()) != 0) return fail();
  return true;
}

uint8_t page_0_checksum(const module_image &image) {
  uint8_t sum = 0;
  if (image.bytes.size() <= checksum_offset) return sum;
  for (uint32_t i = checksum_first; i < checksum_offset; ++i) {
    sum = static_cast<uint8_t>(sum + image.bytes[eeprom_position(0, i)]);
  }
  return sum;
}

}  // namespace lum_linux
