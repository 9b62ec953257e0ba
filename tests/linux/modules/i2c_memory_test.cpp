// Modules on an I2C bus, against a kernel that is played.
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <array>
#include <cerrno>
#include <map>

#include "modules/hardware_helpers.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

// One bus with one module, its page select and what goes wrong on the way.
class played_kernel final : public i2c_kernel {
 public:
  bytes lower = bytes(128);
  std::map<uint8_t, bytes> pages;
  uint16_t address = 0x50;
  bool has_bus = true;
  bool takes_select = true;
  int unanswered = 0;  // so many transfers get no acknowledge
  int unanswered_code = ENXIO;
  int short_transfers = 0;    // so many end behind their first message
  int deaf_after_select = 0;  // after a select, so many transfers get no acknowledge
  int open_files = 0;
  int sleeps = 0;
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

  int ioctl(int fd, unsigned long request, void *argument) override {
    EXPECT_EQ(fd, 7);
    EXPECT_EQ(request, static_cast<unsigned long>(I2C_RDWR));
    const auto &data = *static_cast<i2c_rdwr_ioctl_data *>(argument);
    if (unanswered > 0) return --unanswered, fail(unanswered_code);
    if (deaf_ > 0) return --deaf_, fail(ENXIO);
    for (uint32_t i = 0; i < data.nmsgs; ++i) {
      if (data.msgs[i].addr != address) return fail(ENXIO);
      take(data.msgs[i]);
      if (short_transfers > 0) return --short_transfers, static_cast<int>(i);
    }
    return static_cast<int>(data.nmsgs);
  }

 private:
  static int fail(int code) {
    errno = code;
    return -1;
  }

  uint8_t &at(uint8_t offset) {
    if (offset < 128) return lower[offset];
    return pages[lower[127]].at(offset - 128);
  }

  void take(const i2c_msg &message) {
    if (message.flags & I2C_M_RD) {
      log.push_back("read " + std::to_string(position_) + " " + std::to_string(message.len));
      for (uint16_t i = 0; i < message.len; ++i) {
        message.buf[i] = at(static_cast<uint8_t>(position_ + i));
      }
      return;
    }
    position_ = message.buf[0];
    if (message.len < 2) return;
    log.push_back("write " + std::to_string(position_) + " " + std::to_string(message.buf[1]));
    if (position_ != 127) {
      at(position_) = message.buf[1];
    } else if (takes_select) {
      lower[127] = message.buf[1];
      deaf_ = deaf_after_select;
    }
  }

  uint8_t position_ = 0;
  int deaf_ = 0;
};

class I2cMemory : public testing::Test {
 protected:
  played_kernel kernel;
  std::unique_ptr<module_memory> memory = make_i2c_memory("/dev/i2c-3", 0x50, kernel);

  cerrno read(uint32_t page, uint32_t offset, bytes &out) {
    return memory->read(page, offset, out);
  }
  void TearDown() override { EXPECT_EQ(kernel.open_files, 0); }
};

using log = std::vector<std::string>;

TEST_F(I2cMemory, UpperReadSelectsAndVerifiesThePageFirst) {
  bytes out(23);
  EXPECT_EQ(read(3, 128, out), 0u);
  EXPECT_EQ(out[0], 48);
  EXPECT_EQ(out[22], 70);
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3", "write 127 3", "read 127 1", "read 128 23"}));
}

TEST_F(I2cMemory, PageIsSelectedOnEveryAccess) {
  bytes out(1);
  EXPECT_EQ(read(1, 128, out), 0u);
  kernel.lower[127] = 9;  // somebody else has been there
  EXPECT_EQ(read(1, 128, out), 0u);
  EXPECT_EQ(out[0], 16);
}

TEST_F(I2cMemory, LowerReadLeavesThePageAlone) {
  bytes out(127);
  EXPECT_EQ(read(2, 0, out), 0u);
  EXPECT_EQ(out[14], 14);
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3", "read 0 127"}));
  EXPECT_EQ(kernel.lower[127], 9);
}

TEST_F(I2cMemory, ReadAcrossTheHalvesIsTwoReads) {
  bytes out(4);
  EXPECT_EQ(read(2, 126, out), 0u);
  EXPECT_EQ(out, (bytes{126, 9, 32, 33}));
  EXPECT_EQ(kernel.log,
            (log{"open /dev/i2c-3", "read 126 2", "write 127 2", "read 127 1", "read 128 2"}));
}

TEST_F(I2cMemory, WritesSelectTheirPage) {
  EXPECT_EQ(memory->write(2, 146, 0xAB), 0u);
  EXPECT_EQ(kernel.pages[2][18], 0xAB);
  EXPECT_EQ(memory->write(2, 26, 0xCD), 0u);
  EXPECT_EQ(kernel.lower[26], 0xCD);
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3", "write 127 2", "read 127 1", "write 146 171",
                             "open /dev/i2c-3", "write 26 205"}));
}

TEST_F(I2cMemory, PageThatTheModuleDoesNotTakeFailsWithoutAnAccess) {
  kernel.takes_select = false;
  bytes out(1, 0x77);
  EXPECT_EQ(read(3, 128, out), 5u);
  EXPECT_EQ(memory->write(3, 128, 1), 5u);
  EXPECT_EQ(out[0], 0x77);
  EXPECT_EQ(kernel.pages[9], bytes(128, 0xEE));
  EXPECT_LE(kernel.sleeps, 20);
}

TEST_F(I2cMemory, ModuleThatIsDeafWhileItTurnsThePageIsWaitedFor) {
  kernel.deaf_after_select = 3;
  bytes out(1);
  EXPECT_EQ(read(1, 192, out), 0u);
  EXPECT_EQ(out[0], 80);
  EXPECT_EQ(kernel.sleeps, 3);
}

TEST_F(I2cMemory, NobodyAtTheAddressIsAnAbsentModule) {
  kernel.address = 0x51;
  bytes out(1);
  EXPECT_FALSE(memory->present());
  EXPECT_EQ(read(0, 0, out), 19u);
  EXPECT_EQ(read(3, 128, out), 19u);
  EXPECT_EQ(memory->write(0, 26, 1), 19u);
  kernel.address = 0x50;
  EXPECT_TRUE(memory->present());
}

TEST_F(I2cMemory, OlderDriversCodeForNobodyCountsToo) {
  kernel.unanswered = 1;
  kernel.unanswered_code = EREMOTEIO;
  EXPECT_FALSE(memory->present());
  EXPECT_TRUE(memory->present());
}

TEST_F(I2cMemory, BusErrorIsAFailingModule) {
  kernel.unanswered_code = ETIMEDOUT;
  kernel.unanswered = 2;
  bytes out(1);
  EXPECT_TRUE(memory->present());
  EXPECT_EQ(read(0, 0, out), static_cast<cerrno>(ETIMEDOUT));
}

TEST_F(I2cMemory, TransferThatEndsEarlyFails) {
  kernel.short_transfers = 1;
  bytes out(1);
  EXPECT_EQ(read(0, 0, out), 5u);
}

TEST_F(I2cMemory, MissingBusIsAnAbsentModule) {
  kernel.has_bus = false;
  bytes out(1);
  EXPECT_FALSE(memory->present());
  EXPECT_EQ(read(0, 0, out), 19u);
  EXPECT_EQ(memory->write(3, 128, 1), 19u);
}

TEST_F(I2cMemory, LocationNamesBusAndAddress) { EXPECT_EQ(memory->location(), "/dev/i2c-3 0x50"); }

TEST(RealI2cKernel, BusThatIsNotThereIsAnAbsentModule) {
  const auto memory = make_i2c_memory("/nowhere/i2c-99", 0x50);
  EXPECT_FALSE(memory->present());
}

TEST(RealI2cKernel, WhatIsNoBusHasNoModuleAndIsToldAsThat) {
  const test_folder folder;
  write_file(folder / "file", "bytes of nobody's");
  for (const std::filesystem::path &place : {std::filesystem::path("/dev/null"), folder / "file"}) {
    const auto memory = make_i2c_memory(place, 0x50);
    uint8_t byte = 0;
    EXPECT_FALSE(memory->present());
    EXPECT_EQ(memory->place_code(), static_cast<cerrno>(ENOTTY));
    EXPECT_EQ(memory->read(0, 0, {&byte, 1}), 19u);
    EXPECT_EQ(memory->write(0, 0, 1), 19u);
  }
  EXPECT_EQ(contents(folder / "file"), "bytes of nobody's");
}

}  // namespace
