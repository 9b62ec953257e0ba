// A module's memory: 256 bytes at a time, of which 0 to 127 are the lower page, whatever the page,
// and 128 to 255 the upper half of the page asked for. One narrow class; a backend behind it each
// for a file, a Linux I2C bus and a module that exists in memory only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "cerr.h"
#include "lum_linux/image.h"

namespace lum_linux {

// Codes of the module layer. Anything else is the errno of the system call that failed.
constexpr cerrno module_ok = 0;
constexpr cerrno module_none = 2;           // ENOENT: there is no module to put in
constexpr cerrno module_failing = 5;        // EIO: the memory ends early, or the page was not taken
constexpr cerrno module_no_memory = 12;     // ENOMEM
constexpr cerrno module_busy = 16;          // EBUSY: somebody else's transfer does not end
constexpr cerrno module_absent = 19;        // ENODEV: no module there, or the modules are stopped
constexpr cerrno module_bad_argument = 22;  // EINVAL: not a place in a module's memory, or no port
constexpr cerrno module_unsupported = 95;   // EOPNOTSUPP: this backend cannot do that

// Returns whether `length` bytes (at least 1) from `offset` on are a place in a module's memory.
constexpr bool is_module_place(uint32_t page, uint32_t offset, std::size_t length) {
  return page < module_max_pages && offset < 2 * module_page_size && length > 0 &&
         length <= 2 * module_page_size - offset;
}

// Not for two threads at once: `modules` gives each module its lock. Nothing here throws.
class module_memory {
 public:
  virtual ~module_memory() = default;

  // Reads out.size() bytes. On failure `out` may hold anything.
  virtual cerrno read(uint32_t page, uint32_t offset, std::span<uint8_t> out) = 0;
  virtual cerrno write(uint32_t page, uint32_t offset, uint8_t value) = 0;
  // Whether there is a module, failing or not.
  virtual bool present() = 0;
  // Asked where no module is: 0, or why there can be none, the errno of a bus or folder that cannot
  // be opened. An empty cage is not that.
  virtual cerrno place_code() { return module_ok; }
  // That bus or folder, for people.
  virtual std::string place() const { return location(); }
  // A number that differs once another module is in the cage; 0 when the backend cannot tell.
  virtual uint64_t insertion() { return 0; }
  // Puts another module in the place of the one there. Only a simulated module can do that.
  virtual cerrno replace(const module_image &) { return module_unsupported; }
  // Where the memory is, for people.
  virtual std::string location() const = 0;
  // By which of several ways its bytes come, for people; empty: there is but one, or none is known
  // yet. What it points to stays.
  virtual std::string_view way() const { return {}; }
  // What the code of the access that failed last does not tell, for people; empty: nothing. The
  // one that may throw, for lack of memory.
  virtual std::string trouble() const { return {}; }
};

// An `eeprom` file: the kernel driver's on hardware, an ordinary file elsewhere. It is opened for
// each access, so it may come, go and be replaced at any time. An absent file is an absent module;
// a file that is too short, unreadable or no file at all is a failing one. Writes never make the
// file longer.
std::unique_ptr<module_memory> make_file_memory(std::filesystem::path file);

// The system calls that the I2C backend makes; each behaves as the call of its name, errno
// included.
class i2c_kernel {
 public:
  virtual ~i2c_kernel() = default;
  virtual int open(const char *path, int flags) = 0;
  virtual int close(int fd) = 0;
  virtual int ioctl(int fd, unsigned long request, void *argument) = 0;
  // ioctl() with I2C_SLAVE, whose argument is the address itself.
  virtual int take_address(int fd, uint16_t address) = 0;
  virtual void sleep_us(uint32_t microseconds) = 0;
  // The driver that the kernel has bound to an address of the bus; empty: none, or not known.
  virtual std::string driver_at(const char *path, uint16_t address) const = 0;
};
i2c_kernel &real_i2c_kernel();

// A module at a 7-bit address of a bus device such as /dev/i2c-3. The upper page is selected
// through byte 127 and read back before every access to it, and behind every read; so is the bank,
// through byte 126, where one is given. `kernel` must outlive the memory.
std::unique_ptr<module_memory> make_i2c_memory(std::filesystem::path bus, uint32_t address,
                                               i2c_kernel &kernel = real_i2c_kernel(),
                                               std::optional<uint8_t> bank = {});

// A module in memory; empty (absent) without an image.
std::unique_ptr<module_memory> make_simulated_memory(std::string name);
std::unique_ptr<module_memory> make_simulated_memory(std::string name, const module_image &image);

// Whose readings move with the time that `clock` tells. It is asked while the module is read.
using module_clock = std::function<std::chrono::steady_clock::time_point()>;
std::unique_ptr<module_memory> make_simulated_memory(std::string name, const module_image &image,
                                                     module_clock clock);

}  // namespace lum_linux
