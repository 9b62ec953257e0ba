#include "modules/i2c_bus.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace lum_linux {
namespace {

constexpr unsigned long by_bytes = I2C_FUNC_SMBUS_READ_BYTE_DATA | I2C_FUNC_SMBUS_WRITE_BYTE_DATA;
constexpr unsigned long by_blocks = by_bytes | I2C_FUNC_SMBUS_READ_I2C_BLOCK;

i2c_way way_of(unsigned long functions) {
  if (functions & I2C_FUNC_I2C) return i2c_way::messages;
  if ((functions & by_blocks) == by_blocks) return i2c_way::blocks;
  if ((functions & by_bytes) == by_bytes) return i2c_way::bytes;
  return i2c_way::none;
}

}  // namespace

i2c_bus::i2c_bus(i2c_kernel &kernel, const char *path, uint16_t address)
    : kernel_(kernel), address_(address) {
  open(path);
}

void i2c_bus::open(const char *path) {
  fd_ = kernel_.open(path, O_RDWR | O_CLOEXEC);
  if (fd_ < 0) return fail(step::open, static_cast<cerrno>(errno));
  unsigned long functions = 0;
  if (const cerrno rc = control(I2C_FUNCS, &functions)) return fail(step::functions, rc);
  way_ = way_of(functions);
  if (way_ == i2c_way::none) return fail(step::functions, module_unsupported);
  if (const cerrno rc = take_address(address_)) fail(step::address, rc);
}

i2c_bus::~i2c_bus() {
  if (fd_ >= 0) kernel_.close(fd_);
}

cerrno i2c_bus::read(uint8_t offset, std::span<uint8_t> out) {
  if (way_ == i2c_way::messages) return read_message(offset, out);
  if (way_ == i2c_way::bytes) return read_bytes(offset, out);
  cerrno rc = module_ok;
  while (rc == module_ok && !out.empty()) {
    const auto part = out.first(std::min<std::size_t>(out.size(), I2C_SMBUS_BLOCK_MAX));
    rc = read_block(offset, part);
    out = out.subspan(part.size());
    offset = static_cast<uint8_t>(offset + part.size());
  }
  return rc;
}

cerrno i2c_bus::read_bytes(uint8_t offset, std::span<uint8_t> out) {
  for (uint8_t &byte : out) {
    i2c_smbus_data data = {};
    const cerrno rc = smbus(I2C_SMBUS_READ, offset++, I2C_SMBUS_BYTE_DATA, &data);
    if (rc != module_ok) return rc;
    byte = data.byte;
  }
  return module_ok;
}

cerrno i2c_bus::read_one(uint8_t offset, uint8_t &byte) {
  const std::span<uint8_t> one(&byte, 1);
  return way_ == i2c_way::messages ? read_message(offset, one) : read_bytes(offset, one);
}

cerrno i2c_bus::write(uint8_t offset, uint8_t value) {
  if (way_ != i2c_way::messages) {
    i2c_smbus_data data = {};
    data.byte = value;
    return smbus(I2C_SMBUS_WRITE, offset, I2C_SMBUS_BYTE_DATA, &data);
  }
  std::array<uint8_t, 2> bytes = {offset, value};
  std::array<i2c_msg, 1> messages = {{{address_, 0, 2, bytes.data()}}};
  return transfer(messages);
}

bool i2c_bus::is_answered(uint16_t address) {
  if (way_ == i2c_way::messages) {
    uint8_t byte = 0;
    std::array<i2c_msg, 1> messages = {{{address, I2C_M_RD, 1, &byte}}};
    return transfer(messages) == module_ok;
  }
  if (take_address(address) != module_ok) return false;
  i2c_smbus_data data = {};
  const bool answered = smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, &data) == module_ok;
  const cerrno rc = take_address(address_);
  if (rc != module_ok) fail(step::address, rc);
  return answered;
}

void i2c_bus::fail(step at, cerrno error) {
  failed_ = at;
  error_ = error;
}

cerrno i2c_bus::control(unsigned long request, void *argument) {
  return kernel_.ioctl(fd_, request, argument) < 0 ? static_cast<cerrno>(errno) : module_ok;
}

cerrno i2c_bus::take_address(uint16_t address) {
  return kernel_.take_address(fd_, address) < 0 ? static_cast<cerrno>(errno) : module_ok;
}

cerrno i2c_bus::transfer(std::span<i2c_msg> messages) {
  i2c_rdwr_ioctl_data data = {messages.data(), static_cast<__u32>(messages.size())};
  const int done = kernel_.ioctl(fd_, I2C_RDWR, &data);
  if (done < 0) return static_cast<cerrno>(errno);
  return static_cast<std::size_t>(done) == messages.size() ? module_ok : module_failing;
}

cerrno i2c_bus::smbus(uint8_t direction, uint8_t command, uint32_t size, i2c_smbus_data *data) {
  i2c_smbus_ioctl_data asked = {direction, command, size, data};
  return control(I2C_SMBUS, &asked);
}

cerrno i2c_bus::read_message(uint8_t offset, std::span<uint8_t> out) {
  std::array<i2c_msg, 2> messages = {{
      {address_, 0, 1, &offset},
      {address_, I2C_M_RD, static_cast<uint16_t>(out.size()), out.data()},
  }};
  return transfer(messages);
}

cerrno i2c_bus::read_block(uint8_t offset, std::span<uint8_t> out) {
  i2c_smbus_data data = {};
  data.block[0] = static_cast<uint8_t>(out.size());
  const cerrno rc = smbus(I2C_SMBUS_READ, offset, I2C_SMBUS_I2C_BLOCK_DATA, &data);
  if (rc != module_ok) return rc;
  if (data.block[0] != out.size()) {
    short_count_ = data.block[0];
    return module_failing;
  }
  std::copy_n(data.block + 1, out.size(), out.begin());
  return module_ok;
}

}  // namespace lum_linux
