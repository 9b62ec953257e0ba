// A Linux I2C bus, open for one access to one address.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "lum_linux/module_memory.h"

struct i2c_msg;
union i2c_smbus_data;

namespace lum_linux {

// How an adapter moves bytes, best first.
enum class i2c_way : uint8_t {
  none,
  messages,  // plain messages, as long as the read
  blocks,    // SMBus I2C block reads of up to 32 bytes
  bytes,     // SMBus byte transfers
};

class i2c_bus {
 public:
  // Asks the adapter what it can, and the kernel for the address: one that a driver of its own has
  // is refused with EBUSY.
  i2c_bus(i2c_kernel &kernel, const char *path, uint16_t address);
  ~i2c_bus();
  i2c_bus(const i2c_bus &) = delete;
  i2c_bus &operator=(const i2c_bus &) = delete;

  // Which step of the opening failed, and with which errno.
  enum class step : uint8_t { open, functions, address, none };
  step failed_step() const { return failed_; }
  cerrno error() const { return error_; }
  // none: the adapter offers nothing that a module can be read by.
  i2c_way way() const { return way_; }

  // By the adapter's way. A block read that brings another count than it was asked for fails, and
  // `short_count` says what it brought.
  cerrno read(uint8_t offset, std::span<uint8_t> out);
  cerrno read_bytes(uint8_t offset, std::span<uint8_t> out);
  cerrno read_one(uint8_t offset, uint8_t &byte);  // never as a block
  cerrno write(uint8_t offset, uint8_t value);
  std::optional<uint8_t> short_count() const { return short_count_; }

  // Whether a read at another address is acknowledged.
  bool is_answered(uint16_t address);

 private:
  void open(const char *path);
  void fail(step at, cerrno error);
  cerrno control(unsigned long request, void *argument);
  cerrno take_address(uint16_t address);
  cerrno transfer(std::span<i2c_msg> messages);
  cerrno smbus(uint8_t direction, uint8_t command, uint32_t size, i2c_smbus_data *data);
  cerrno read_message(uint8_t offset, std::span<uint8_t> out);
  cerrno read_block(uint8_t offset, std::span<uint8_t> out);

  i2c_kernel &kernel_;
  uint16_t address_;
  int fd_ = -1;
  step failed_ = step::none;
  cerrno error_ = module_ok;
  i2c_way way_ = i2c_way::none;
  std::optional<uint8_t> short_count_;
};

}  // namespace lum_linux
