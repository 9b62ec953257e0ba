// A kernel with one I2C bus and one module on it, played: the adapter's ways, the page select and
// what goes wrong on the way.
#pragma once

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <cerrno>
#include <functional>
#include <map>

#include "lum_linux/module_memory.h"
#include "modules/hardware_helpers.h"

namespace hardware_test {

constexpr unsigned long plain_messages = I2C_FUNC_I2C;
constexpr unsigned long smbus_bytes =
    I2C_FUNC_SMBUS_READ_BYTE | I2C_FUNC_SMBUS_READ_BYTE_DATA | I2C_FUNC_SMBUS_WRITE_BYTE_DATA;
constexpr unsigned long smbus_blocks = smbus_bytes | I2C_FUNC_SMBUS_READ_I2C_BLOCK;

class played_kernel final : public lum_linux::i2c_kernel {
 public:
  bytes lower = bytes(128);
  std::map<uint8_t, bytes> pages;
  uint16_t address = 0x50;
  bool answers_everywhere = false;
  bool has_bus = true;
  bool is_bus = true;
  bool has_banks = false;
  bool takes_select = true;
  bool is_bound = false;  // to the driver at24
  unsigned long functions = plain_messages;
  int unanswered = 0;  // so many transfers get no acknowledge
  int unanswered_code = ENXIO;
  int short_transfers = 0;    // so many end behind their first message
  int deaf_after_select = 0;  // after a select, so many transfers get no acknowledge
  int short_blocks = 0;       // so many bring a byte less
  int blocks_code = 0;        // what block reads fail with
  bool blocks_heed_page = true;
  std::function<void()> before_read = [] {};  // of a byte or more at 128 and above
  int open_files = 0;
  int sleeps = 0;
  int probes = 0;  // at the address that nobody has
  std::vector<std::string> log;

  played_kernel() {
    for (std::size_t i = 0; i < 128; ++i) lower[i] = static_cast<uint8_t>(i);
    for (uint8_t page = 0; page < 4; ++page) {
      pages[page] = bytes(128);
      for (std::size_t i = 0; i < 128; ++i) pages[page][i] = static_cast<uint8_t>(page * 16 + i);
    }
    lower[127] = 9;  // left behind on a page of its own
    pages[9] = bytes(128, 0xEE);
  }

  int open(const char *path, int) override {
    log.push_back(std::string("open ") + path);
    if (!has_bus) return fail(ENOENT);
    ++open_files;
    return 7;
  }
  int close(int) override {
    --open_files;
    return 0;
  }
  void sleep_us(uint32_t) override { ++sleeps; }
  std::string driver_at(const char *, uint16_t) const override { return is_bound ? "at24" : ""; }

  int take_address(int fd, uint16_t to) override {
    EXPECT_EQ(fd, 7);
    slave_ = to;
    return is_bound && slave_ == address ? fail(EBUSY) : 0;
  }

  int ioctl(int fd, unsigned long request, void *argument) override {
    EXPECT_EQ(fd, 7);
    if (!is_bus) return fail(ENOTTY);
    switch (request) {
      case I2C_FUNCS:
        *static_cast<unsigned long *>(argument) = functions;
        return 0;
      case I2C_RDWR:
        return messages(*static_cast<i2c_rdwr_ioctl_data *>(argument));
      case I2C_SMBUS:
        return smbus(*static_cast<i2c_smbus_ioctl_data *>(argument));
      default:
        ADD_FAILURE() << "request " << request;
        return fail(ENOTTY);
    }
  }

 private:
  static int fail(int code) {
    errno = code;
    return -1;
  }

  // 0, or why the transfer is not made.
  int refusal(uint16_t to) {
    if (to == 0x7F) ++probes;
    if (answers_everywhere) return 0;
    if (to == 0x7F) return ENXIO;
    if (unanswered > 0) return --unanswered, unanswered_code;
    if (deaf_ > 0) return --deaf_, ENXIO;
    return to == address ? 0 : ENXIO;
  }

  int messages(const i2c_rdwr_ioctl_data &data) {
    EXPECT_TRUE(functions & I2C_FUNC_I2C) << "the adapter has no plain messages";
    if (const int code = refusal(data.msgs[0].addr)) return fail(code);
    for (uint32_t i = 0; i < data.nmsgs; ++i) {
      if (data.msgs[i].addr == 0x7F) continue;
      take(data.msgs[i]);
      if (short_transfers > 0) return --short_transfers, static_cast<int>(i);
    }
    return static_cast<int>(data.nmsgs);
  }

  int smbus(const i2c_smbus_ioctl_data &asked) {
    if (const int code = refusal(slave_)) return fail(code);
    if (slave_ == 0x7F) return 0;
    if (asked.size == I2C_SMBUS_BYTE_DATA && asked.read_write == I2C_SMBUS_WRITE) {
      store(asked.command, asked.data->byte);
    } else if (asked.size == I2C_SMBUS_BYTE_DATA) {
      log.push_back("byte " + std::to_string(asked.command));
      asked.data->byte = fetch(asked.command);
    } else if (asked.size == I2C_SMBUS_I2C_BLOCK_DATA) {
      return block(asked);
    } else {
      ADD_FAILURE() << "transfer of kind " << asked.size;
    }
    return 0;
  }

  int block(const i2c_smbus_ioctl_data &asked) {
    EXPECT_TRUE(functions & I2C_FUNC_SMBUS_READ_I2C_BLOCK) << "the adapter has no block reads";
    const uint8_t count = asked.data->block[0];
    EXPECT_LE(count, 32);
    log.push_back("block " + std::to_string(asked.command) + " " + std::to_string(count));
    if (blocks_code != 0) return fail(blocks_code);
    const uint8_t page = lower[127];
    if (!blocks_heed_page && asked.command >= 128) lower[127] = 0;
    for (uint8_t i = 0; i < count; ++i) {
      asked.data->block[1 + i] = fetch(static_cast<uint8_t>(asked.command + i));
    }
    if (!blocks_heed_page && asked.command >= 128) lower[127] = page;
    if (short_blocks > 0) {
      --short_blocks;
      --asked.data->block[0];
    }
    return 0;
  }

  uint8_t &at(uint8_t offset) {
    if (offset < 128) return lower[offset];
    const auto page = static_cast<uint8_t>(has_banks ? lower[126] * 4 + lower[127] : lower[127]);
    return pages[page].at(offset - 128);
  }

  uint8_t fetch(uint8_t offset) {
    if (offset >= 128) before_read();
    return at(offset);
  }

  void take(const i2c_msg &message) {
    if (message.flags & I2C_M_RD) {
      log.push_back("read " + std::to_string(position_) + " " + std::to_string(message.len));
      for (uint16_t i = 0; i < message.len; ++i) {
        message.buf[i] = fetch(static_cast<uint8_t>(position_ + i));
      }
      return;
    }
    position_ = message.buf[0];
    if (message.len > 1) store(position_, message.buf[1]);
  }

  void store(uint8_t offset, uint8_t value) {
    log.push_back("write " + std::to_string(offset) + " " + std::to_string(value));
    if (offset != 127) {
      at(offset) = value;
    } else if (takes_select) {
      lower[127] = value;
      deaf_ = deaf_after_select;
    }
  }

  uint16_t slave_ = 0;
  uint8_t position_ = 0;
  int deaf_ = 0;
};

}  // namespace hardware_test
