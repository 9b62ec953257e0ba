// A module's memory on a Linux I2C bus.
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "lum_linux/module_memory.h"
#include "modules/block_trust.h"
#include "modules/i2c_bus.h"
#include "modules/i2c_trouble.h"

namespace lum_linux {
namespace {

constexpr uint8_t bank_select = 126;
constexpr uint8_t page_select = 127;

// A module may leave the bus unanswered while it changes its page; it has 10 ms for that, and what
// has not come back after twice the time is reported.
constexpr int select_attempts = 10;
constexpr uint32_t select_pause_us = 2000;

// How often a read starts again because somebody else has turned the page meanwhile.
constexpr int read_attempts = 3;

// No chip has this address. It is all ones, as is a read's bit behind it: to a bus in order it is
// nine clocks on an idle line, and only a line that is held down, or a chip that takes every
// address for its own, acknowledges it.
constexpr uint16_t nobodys_address = 0x7F;

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
  int take_address(int fd, uint16_t address) override {
    return ::ioctl(fd, I2C_SLAVE, static_cast<unsigned long>(address));
  }
  void sleep_us(uint32_t microseconds) override { ::usleep(microseconds); }
  std::string driver_at(const char *path, uint16_t address) const override;

 private:
  static int no_bus() {
    errno = ENOTTY;
    return -1;
  }
};

// The link is i2c-N/N-00AA/driver, where i2c-N is the folder of the bus's adapter.
std::string real_kernel::driver_at(const char *path, uint16_t address) const {
  struct stat info = {};
  if (::stat(path, &info) != 0) return {};
  std::error_code error;
  const std::filesystem::path adapter = std::filesystem::canonical(
      fmt::format("/sys/dev/char/{}:{}/device", major(info.st_rdev), minor(info.st_rdev)), error);
  const std::string name = adapter.filename().native();
  if (error || name.rfind("i2c-", 0) != 0) return {};
  const auto link = adapter / fmt::format("{}-{:04x}", name.substr(4), address) / "driver";
  return std::filesystem::read_symlink(link, error).filename().native();
}

// Nobody has acknowledged the address.
bool is_unanswered(cerrno rc) { return rc == ENXIO || rc == EREMOTEIO || rc == ENODEV; }

// Errors that say of a kind of transfer that the adapter does not have it.
bool is_refusal(cerrno rc) { return rc == EOPNOTSUPP || rc == EINVAL || rc == ENOSYS; }

class i2c_memory final : public module_memory {
 public:
  i2c_memory(std::filesystem::path bus, uint32_t address, i2c_kernel &kernel,
             std::optional<uint8_t> bank)
      : path_(std::move(bus)),
        address_(static_cast<uint16_t>(address)),
        kernel_(kernel),
        bank_(bank) {}

  cerrno read(uint32_t page, uint32_t offset, std::span<uint8_t> out) override;
  cerrno write(uint32_t page, uint32_t offset, uint8_t value) override;
  bool present() override;
  cerrno place_code() override;
  std::string place() const override { return path_.native(); }
  std::string location() const override {
    return fmt::format("{} 0x{:02x}", path_.native(), address_);
  }
  std::string_view way() const override;
  std::string trouble() const override;

 private:
  cerrno enter(const i2c_bus &bus);
  cerrno leave(const i2c_bus &bus, cerrno rc);
  cerrno read_halves(i2c_bus &bus, uint32_t page, uint32_t offset, std::span<uint8_t> out);
  cerrno read_upper(i2c_bus &bus, uint8_t page, uint8_t offset, std::span<uint8_t> out);
  cerrno read_half(i2c_bus &bus, std::optional<uint8_t> page, uint8_t offset,
                   std::span<uint8_t> out);
  cerrno compare(i2c_bus &bus, std::optional<uint8_t> page, uint8_t offset, std::span<uint8_t> out);
  cerrno select(i2c_bus &bus, uint8_t page);
  cerrno verify(i2c_bus &bus, uint8_t page);
  cerrno want_nobody_elsewhere(i2c_bus &bus);

  std::filesystem::path path_;
  uint16_t address_;
  i2c_kernel &kernel_;
  std::optional<uint8_t> bank_;

  i2c_way way_ = i2c_way::none;  // of the last access
  block_trust trust_;
  bool nobody_elsewhere_ = false;  // seen since the module came
  i2c_trouble trouble_;
};

cerrno i2c_memory::read(uint32_t page, uint32_t offset, std::span<uint8_t> out) {
  i2c_bus bus(kernel_, path_.c_str(), address_);
  cerrno rc = enter(bus);
  if (rc == module_ok) rc = read_halves(bus, page, offset, out);
  if (rc == module_ok) rc = want_nobody_elsewhere(bus);
  return leave(bus, rc);
}

cerrno i2c_memory::write(uint32_t page, uint32_t offset, uint8_t value) {
  i2c_bus bus(kernel_, path_.c_str(), address_);
  cerrno rc = enter(bus);
  uint8_t first = 0;
  if (rc == module_ok && !nobody_elsewhere_) rc = bus.read_one(0, first);
  if (rc == module_ok) rc = want_nobody_elsewhere(bus);
  if (rc == module_ok && offset >= module_page_size) rc = select(bus, static_cast<uint8_t>(page));
  if (rc == module_ok) rc = bus.write(static_cast<uint8_t>(offset), value);
  return leave(bus, rc);
}

bool i2c_memory::present() {
  uint8_t identifier = 0;
  return read(0, 0, {&identifier, 1}) != module_absent;
}

cerrno i2c_memory::place_code() {
  const i2c_bus bus(kernel_, path_.c_str(), address_);
  return bus.failed_step() == i2c_bus::step::open ? bus.error() : module_ok;
}

// Nothing before the way has brought something, and has been found to be right.
std::string_view i2c_memory::way() const {
  if (!nobody_elsewhere_) return {};
  switch (way_) {
    case i2c_way::none:
      return {};
    case i2c_way::messages:
      return "plain messages";
    case i2c_way::bytes:
      return "byte transfers";
    case i2c_way::blocks:
      break;
  }
  if (trust_.is_proven()) return "I2C block reads of 32 bytes";
  if (!trust_.is_refused()) return {};
  return "byte transfers, as the adapter's block reads cannot be relied on";
}

std::string i2c_memory::trouble() const {
  const std::string driver = trouble_.kind == i2c_trouble_kind::taken
                                 ? kernel_.driver_at(path_.c_str(), address_)
                                 : std::string();
  return describe(trouble_, {path_.native(), address_, driver});
}

cerrno i2c_memory::enter(const i2c_bus &bus) {
  trouble_ = {};
  if (bus.failed_step() == i2c_bus::step::open) return module_absent;
  if (bus.way() != way_) trust_ = {};
  way_ = bus.way();
  if (bus.failed_step() == i2c_bus::step::none) return module_ok;
  if (bus.failed_step() == i2c_bus::step::functions) {
    trouble_ = {bus.error() == module_unsupported ? i2c_trouble_kind::no_way
                                                  : i2c_trouble_kind::no_bus};
    return bus.error();
  }
  if (bus.error() != EBUSY) return bus.error();
  trouble_ = {i2c_trouble_kind::taken};
  return module_failing;
}

// Turns the code of a transfer into the module's, and keeps why.
cerrno i2c_memory::leave(const i2c_bus &bus, cerrno rc) {
  if (rc == module_ok) return rc;
  if (rc == module_absent || is_unanswered(rc)) {
    trouble_ = {};
    trust_.forget_pages();
    nobody_elsewhere_ = false;
    return module_absent;
  }
  if (trouble_.kind != i2c_trouble_kind::none) return rc;
  trouble_ = {i2c_trouble_kind::transfer, 0, 0, rc};
  if (bus.short_count()) trouble_ = {i2c_trouble_kind::short_block, 0, *bus.short_count()};
  return rc == EBUSY ? module_failing : rc;
}

cerrno i2c_memory::read_halves(i2c_bus &bus, uint32_t page, uint32_t offset,
                               std::span<uint8_t> out) {
  const std::size_t lower =
      offset < module_page_size ? std::min<std::size_t>(out.size(), module_page_size - offset) : 0;
  cerrno rc = module_ok;
  if (lower > 0) rc = read_half(bus, {}, static_cast<uint8_t>(offset), out.first(lower));
  if (rc != module_ok || out.size() == lower) return rc;
  return read_upper(bus, static_cast<uint8_t>(page), static_cast<uint8_t>(offset + lower),
                    out.subspan(lower));
}

// Somebody else may turn the page between the transfers, so it is looked at behind the last too.
cerrno i2c_memory::read_upper(i2c_bus &bus, uint8_t page, uint8_t offset, std::span<uint8_t> out) {
  for (int attempt = 0; attempt < read_attempts; ++attempt) {
    cerrno rc = select(bus, page);
    if (rc == module_ok) rc = read_half(bus, page, offset, out);
    if (rc != module_ok) return rc;
    rc = verify(bus, page);
    if (rc == module_ok || trouble_.kind == i2c_trouble_kind::none) return rc;
  }
  trouble_.kind = i2c_trouble_kind::turned;
  return module_failing;
}

// Without a page: of the lower half.
cerrno i2c_memory::read_half(i2c_bus &bus, std::optional<uint8_t> page, uint8_t offset,
                             std::span<uint8_t> out) {
  if (bus.way() != i2c_way::blocks || trust_.is_proven()) return bus.read(offset, out);
  if (trust_.is_refused()) return bus.read_bytes(offset, out);
  return compare(bus, page, offset, out);
}

// Brings the bytes as byte reads have them. What changes by itself, such as a reading, differs now
// and then; a block read is wrong where it differs twice from a byte that has stayed the same.
cerrno i2c_memory::compare(i2c_bus &bus, std::optional<uint8_t> page, uint8_t offset,
                           std::span<uint8_t> out) {
  std::array<uint8_t, module_page_size> block;
  std::array<std::optional<uint8_t>, module_page_size> differed;
  for (int attempt = 0; attempt < read_attempts; ++attempt) {
    const cerrno block_rc = bus.read(offset, std::span(block).first(out.size()));
    if (block_rc != module_ok && !is_refusal(block_rc)) return block_rc;
    const cerrno rc = bus.read_bytes(offset, out);
    if (rc != module_ok) return rc;
    bool is_wrong = block_rc != module_ok;
    bool is_same = !is_wrong;
    for (std::size_t i = 0; i < out.size(); ++i) {
      const bool differs = block[i] != out[i];
      is_wrong = is_wrong || (differs && differed[i] == out[i]);
      is_same = is_same && !differs;
      differed[i] = differs ? std::optional(out[i]) : std::nullopt;
    }
    if (is_wrong) trust_.refuse();
    if (is_same && page) trust_.agree(*page, offset, out);
    if (is_wrong || is_same) break;
  }
  return module_ok;
}

template <typename Step>
cerrno retry(i2c_kernel &kernel, Step step) {
  cerrno rc = step();
  for (int attempt = 1; attempt < select_attempts && rc != module_ok; ++attempt) {
    kernel.sleep_us(select_pause_us);
    rc = step();
  }
  return rc;
}

// The module takes the bank with the page that is written behind it.
cerrno i2c_memory::select(i2c_bus &bus, uint8_t page) {
  cerrno rc = module_ok;
  if (bank_) rc = retry(kernel_, [&] { return bus.write(bank_select, *bank_); });
  if (rc == module_ok) rc = retry(kernel_, [&] { return bus.write(page_select, page); });
  if (rc == module_ok) rc = retry(kernel_, [&] { return verify(bus, page); });
  return rc;
}

// Whether the module shows the page, and the bank where there is one to show. Leaves no trouble
// behind when the transfer itself failed.
cerrno i2c_memory::verify(i2c_bus &bus, uint8_t page) {
  trouble_ = {};
  std::array<uint8_t, 2> shown = {bank_.value_or(0), 0};
  cerrno rc = module_ok;
  if (bank_) rc = bus.read_one(bank_select, shown[0]);
  if (rc == module_ok) rc = bus.read_one(page_select, shown[1]);
  if (rc != module_ok) return rc;
  if (bank_ && shown[0] != *bank_) {
    trouble_ = {i2c_trouble_kind::bank_not_taken, *bank_, shown[0]};
  } else if (shown[1] != page) {
    trouble_ = {i2c_trouble_kind::page_not_taken, page, shown[1]};
  }
  return trouble_.kind == i2c_trouble_kind::none ? module_ok : module_failing;
}

// A bus on which every address is answered has nothing to say about this one.
cerrno i2c_memory::want_nobody_elsewhere(i2c_bus &bus) {
  if (nobody_elsewhere_) return module_ok;
  if (bus.is_answered(nobodys_address)) {
    trouble_ = {i2c_trouble_kind::answered_everywhere, nobodys_address};
    return module_failing;
  }
  nobody_elsewhere_ = bus.error() == module_ok;
  return bus.error();
}

}  // namespace

i2c_kernel &real_i2c_kernel() {
  static real_kernel kernel;
  return kernel;
}

std::unique_ptr<module_memory> make_i2c_memory(std::filesystem::path bus, uint32_t address,
                                               i2c_kernel &kernel, std::optional<uint8_t> bank) {
  return std::make_unique<i2c_memory>(std::move(bus), address, kernel, bank);
}

}  // namespace lum_linux
