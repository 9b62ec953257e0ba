// A module's memory on a Linux I2C bus.
#include "lum_linux/module_memory.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace lum_linux {
namespace {

constexpr uint8_t page_select = 127;

// A module may leave the bus unanswered while it changes its page; it has 10 ms for that, and what
// has not come back after twice the time is reported.
constexpr int select_attempts = 10;
constexpr uint32_t select_pause_us = 2000;

class real_kernel final : public i2c_kernel {
 public:
  // What is no bus is not opened: writing to somebody's file would be no transfer.
  int open(const char *path, int flags) override {
    struct stat info = {};
    if (::stat(path, &info) == 0 && !S_ISCHR(info.st_mode)) return no_bus();
    const int fd = ::open(path, flags);
    unsigned long functions = 0;
    if (fd < 0 || ::ioctl(fd, I2C_FUNCS, &functions) == 0) return fd;
    ::close(fd);
    return no_bus();
  }
  int close(int fd) override { return ::close(fd); }
  int ioctl(int fd, unsigned long request, void *argument) override {
    return ::ioctl(fd, request, argument);
  }
  void sleep_us(uint32_t microseconds) override { ::usleep(microseconds); }

 private:
  static int no_bus() {
    errno = ENOTTY;
    return -1;
  }
};

// The bus, open for one access.
class open_bus {
 public:
  open_bus(i2c_kernel &kernel, const char *path, uint16_t address)
      : kernel_(kernel), address_(address) {
    fd_ = kernel_.open(path, O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd_ < 0) error_ = static_cast<cerrno>(errno);
  }
  ~open_bus() {
    if (fd_ >= 0) kernel_.close(fd_);
  }
  open_bus(const open_bus &) = delete;
  open_bus &operator=(const open_bus &) = delete;

  // Why the bus could not be opened, as errno and as what a transfer makes of it: no module.
  cerrno error() const { return error_; }
  cerrno code() const { return error_ != 0 ? module_absent : module_ok; }

  cerrno read(uint8_t offset, std::span<uint8_t> out) {
    std::array<i2c_msg, 2> messages = {{
        {address_, 0, 1, &offset},
        {address_, I2C_M_RD, static_cast<uint16_t>(out.size()), out.data()},
    }};
    return transfer(messages);
  }

  cerrno write(uint8_t offset, uint8_t value) {
    std::array<uint8_t, 2> bytes = {offset, value};
    std::array<i2c_msg, 1> messages = {{{address_, 0, 2, bytes.data()}}};
    return transfer(messages);
  }

  // Selects a page and makes sure that the module has taken it.
  cerrno select(uint8_t page) {
    cerrno rc = retry([&] { return write(page_select, page); });
    if (rc != module_ok) return rc;
    return retry([&] {
      uint8_t selected = 0;
      const cerrno code = read(page_select, {&selected, 1});
      if (code != module_ok) return code;
      return selected == page ? module_ok : module_failing;
    });
  }

 private:
  cerrno transfer(std::span<i2c_msg> messages) {
    i2c_rdwr_ioctl_data data = {messages.data(), static_cast<__u32>(messages.size())};
    const int done = kernel_.ioctl(fd_, I2C_RDWR, &data);
    if (done < 0) return static_cast<cerrno>(errno);
    return static_cast<std::size_t>(done) == messages.size() ? module_ok : module_failing;
  }

  template <typename Step>
  cerrno retry(Step step) {
    cerrno rc = step();
    for (int attempt = 1; attempt < select_attempts && rc != module_ok; ++attempt) {
      kernel_.sleep_us(select_pause_us);
      rc = step();
    }
    return rc;
  }

  i2c_kernel &kernel_;
  uint16_t address_;
  int fd_ = -1;
  cerrno error_ = module_ok;
};

// Nobody has acknowledged the address.
bool is_unanswered(cerrno rc) { return rc == ENXIO || rc == EREMOTEIO || rc == ENODEV; }

class i2c_memory final : public module_memory {
 public:
  i2c_memory(std::filesystem::path bus, uint32_t address, i2c_kernel &kernel)
      : path_(std::move(bus)), address_(static_cast<uint16_t>(address)), kernel_(kernel) {}

  cerrno read(uint32_t page, uint32_t offset, std::span<uint8_t> out) override {
    open_bus bus(kernel_, path_.c_str(), address_);
    cerrno rc = bus.code();
    const std::size_t lower = offset < module_page_size
                                  ? std::min<std::size_t>(out.size(), module_page_size - offset)
                                  : 0;
    if (rc == module_ok && lower > 0) rc = bus.read(static_cast<uint8_t>(offset), out.first(lower));
    if (rc == module_ok && out.size() > lower) {
      rc = bus.select(static_cast<uint8_t>(page));
      if (rc == module_ok) {
        rc = bus.read(static_cast<uint8_t>(offset + lower), out.subspan(lower));
      }
    }
    return code_of(rc);
  }

  cerrno write(uint32_t page, uint32_t offset, uint8_t value) override {
    open_bus bus(kernel_, path_.c_str(), address_);
    cerrno rc = bus.code();
    if (rc == module_ok && offset >= module_page_size) rc = bus.select(static_cast<uint8_t>(page));
    if (rc == module_ok) rc = bus.write(static_cast<uint8_t>(offset), value);
    return code_of(rc);
  }

  bool present() override {
    uint8_t identifier = 0;
    return read(0, 0, {&identifier, 1}) != module_absent;
  }

  cerrno place_code() override { return open_bus(kernel_, path_.c_str(), address_).error(); }
  std::string place() const override { return path_.native(); }

  std::string location() const override {
    constexpr char digits[] = "0123456789abcdef";
    return path_.native() + " 0x" + digits[address_ >> 4 & 0xF] + digits[address_ & 0xF];
  }

 private:
  static cerrno code_of(cerrno rc) { return is_unanswered(rc) ? module_absent : rc; }

  std::filesystem::path path_;
  uint16_t address_;
  i2c_kernel &kernel_;
};

}  // namespace

i2c_kernel &real_i2c_kernel() {
  static real_kernel kernel;
  return kernel;
}

std::unique_ptr<module_memory> make_i2c_memory(std::filesystem::path bus, uint32_t address,
                                               i2c_kernel &kernel) {
  return std::make_unique<i2c_memory>(std::move(bus), address, kernel);
}

}  // namespace lum_linux
