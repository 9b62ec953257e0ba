// Modules on an I2C bus, against a kernel that is played.
#include "modules/played_kernel.h"

namespace {

using namespace lum_linux;
using namespace hardware_test;

class I2cMemory : public testing::Test {
 protected:
  played_kernel kernel;
  std::unique_ptr<module_memory> memory = make_i2c_memory("/dev/i2c-3", 0x50, kernel);

  cerrno read(uint32_t page, uint32_t offset, bytes &out) {
    return memory->read(page, offset, out);
  }
  void TearDown() override { EXPECT_EQ(kernel.open_files, 0); }

  // As it is once the module has been met.
  void meet() {
    EXPECT_TRUE(memory->present());
    kernel.log.clear();
  }
};

using log = std::vector<std::string>;

TEST_F(I2cMemory, UpperReadVerifiesThePageBeforeAndBehind) {
  bytes out(23);
  EXPECT_EQ(read(3, 128, out), 0u);
  EXPECT_EQ(out[0], 48);
  EXPECT_EQ(out[22], 70);
  EXPECT_EQ(kernel.log,
            (log{"open /dev/i2c-3", "write 127 3", "read 127 1", "read 128 23", "read 127 1"}));
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
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3", "read 126 2", "write 127 2", "read 127 1",
                             "read 128 2", "read 127 1"}));
}

TEST_F(I2cMemory, WritesSelectTheirPage) {
  meet();
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

TEST_F(I2cMemory, PageTurnedDuringAReadIsReadAgain) {
  int turns = 1;
  kernel.before_read = [&] {
    if (turns-- > 0) kernel.lower[127] = 9;
  };
  bytes out(4);
  EXPECT_EQ(read(3, 128, out), 0u);
  EXPECT_EQ(out, (bytes{48, 49, 50, 51}));
}

TEST_F(I2cMemory, PageTurnedOverAndOverFailsAndSaysSo) {
  kernel.before_read = [&] { kernel.lower[127] = 9; };
  bytes out(4);
  EXPECT_EQ(read(3, 128, out), 5u);
  EXPECT_EQ(
      memory->trouble(),
      "somebody else uses the bus: while it was read, page or bank 3 became 9 time and again");
}

TEST_F(I2cMemory, PageThatIsNotTakenIsNamed) {
  kernel.takes_select = false;
  bytes out(1);
  EXPECT_EQ(read(3, 128, out), 5u);
  EXPECT_EQ(memory->trouble(), "page 3 was not taken: byte 127 holds 9");
  kernel.takes_select = true;
  EXPECT_EQ(read(3, 128, out), 0u);
  EXPECT_EQ(memory->trouble(), "");
}

TEST_F(I2cMemory, BanksAreLeftAloneUnlessOneIsAskedFor) {
  bytes out(1);
  EXPECT_EQ(read(1, 128, out), 0u);
  EXPECT_EQ(kernel.lower[126], 126);
}

TEST_F(I2cMemory, BankIsSelectedBeforeThePageAndVerified) {
  memory = make_i2c_memory("/dev/i2c-3", 0x50, kernel, 0);
  kernel.has_banks = true;
  bytes out(1);
  EXPECT_EQ(read(2, 128, out), 0u);
  EXPECT_EQ(out[0], 32);
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3", "write 126 0", "write 127 2", "read 126 1",
                             "read 127 1", "read 128 1", "read 126 1", "read 127 1"}));
}

TEST_F(I2cMemory, SmbusAdapterIsReadInBlocksAndWrittenInBytes) {
  kernel.functions = smbus_blocks;
  bytes out(128);
  for (uint8_t page : {0, 1, 2}) {
    EXPECT_EQ(read(page, 128, out), 0u);
    EXPECT_EQ(out, kernel.pages[page]);
  }
  EXPECT_EQ(memory->way(), "I2C block reads of 32 bytes");
  kernel.log.clear();
  out.resize(40);
  EXPECT_EQ(read(3, 128, out), 0u);
  EXPECT_EQ(out[39], 87);
  EXPECT_EQ(memory->write(3, 200, 0xAB), 0u);
  EXPECT_EQ(kernel.log,
            (log{"open /dev/i2c-3", "write 127 3", "byte 127", "block 128 32", "block 160 8",
                 "byte 127", "open /dev/i2c-3", "write 127 3", "byte 127", "write 200 171"}));
}

TEST_F(I2cMemory, AdapterWithoutBlocksIsReadByteByByte) {
  kernel.functions = smbus_bytes;
  bytes out(3);
  EXPECT_EQ(read(3, 253, out), 0u);
  EXPECT_EQ(out, (bytes{173, 174, 175}));
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3", "write 127 3", "byte 127", "byte 253", "byte 254",
                             "byte 255", "byte 127"}));
  EXPECT_EQ(memory->way(), "byte transfers");
}

TEST_F(I2cMemory, PlainMessagesComeFirst) {
  kernel.functions = plain_messages | smbus_blocks;
  bytes out(128);
  EXPECT_EQ(read(1, 128, out), 0u);
  EXPECT_EQ(memory->way(), "plain messages");
}

TEST_F(I2cMemory, AdapterWithoutAnyWayFailsAndSaysSo) {
  kernel.functions = I2C_FUNC_SMBUS_QUICK;
  bytes out(1);
  EXPECT_EQ(read(0, 0, out), 95u);
  EXPECT_TRUE(memory->present());
  EXPECT_EQ(memory->trouble(),
            "the adapter of /dev/i2c-3 offers neither plain messages nor SMBus byte transfers: a "
            "module cannot be read through it");
}

TEST_F(I2cMemory, BlockReadsThatDoNotHeedThePageAreNotBelieved) {
  kernel.functions = smbus_blocks;
  kernel.blocks_heed_page = false;
  bytes out(128);
  for (uint8_t page : {0, 1, 2, 1, 3}) {
    EXPECT_EQ(read(page, 128, out), 0u);
    EXPECT_EQ(out, kernel.pages[page]) << "page " << int{page};
  }
  EXPECT_EQ(memory->way(), "byte transfers, as the adapter's block reads cannot be relied on");
}

TEST_F(I2cMemory, BlockReadsThatAreRefusedGiveWayToBytes) {
  kernel.functions = smbus_blocks;
  kernel.blocks_code = EOPNOTSUPP;
  bytes out(2);
  EXPECT_EQ(read(2, 128, out), 0u);
  EXPECT_EQ(out, (bytes{32, 33}));
}

TEST_F(I2cMemory, ByteThatChangesByItselfDoesNotDiscreditBlockReads) {
  kernel.functions = smbus_blocks;
  kernel.before_read = [&] { ++kernel.pages[kernel.lower[127]][7]; };
  bytes out(20);
  EXPECT_EQ(read(1, 128, out), 0u);
  EXPECT_EQ(read(2, 128, out), 0u);
  EXPECT_EQ(out[6], 38);
  EXPECT_EQ(out[8], 40);
  EXPECT_EQ(memory->way(), "") << "nothing is known of the block reads yet";
  kernel.before_read = [] {};
  EXPECT_EQ(read(1, 128, out), 0u);
  EXPECT_EQ(read(2, 128, out), 0u);
  EXPECT_EQ(memory->way(), "I2C block reads of 32 bytes");
}

TEST_F(I2cMemory, BlockReadsThatNoTwoPagesCanProveAreNotUsed) {
  kernel.functions = smbus_blocks;
  kernel.pages[2] = kernel.pages[1];
  bytes out(8);
  for (int i = 0; i < 32; ++i) {
    EXPECT_EQ(memory->way(), "");
    EXPECT_EQ(read(1, 128, out), 0u);
    EXPECT_EQ(read(2, 128, out), 0u);
  }
  EXPECT_EQ(memory->way(), "byte transfers, as the adapter's block reads cannot be relied on");
}

TEST_F(I2cMemory, ShortBlockFailsAndSaysSo) {
  kernel.functions = smbus_blocks;
  kernel.short_blocks = 1;
  bytes out(20);
  EXPECT_EQ(read(0, 0, out), 5u);
  EXPECT_EQ(memory->trouble(), "a block read brought 19 bytes, which is not what was asked for");
}

TEST_F(I2cMemory, AddressThatADriverOfTheKernelHasIsNamed) {
  kernel.is_bound = true;
  bytes out(1);
  EXPECT_EQ(read(0, 0, out), 5u);
  EXPECT_EQ(memory->trouble(),
            "the kernel's driver at24 has address 0x50 of /dev/i2c-3 (UU in i2cdetect): unbind it, "
            "or give the port its eeprom file");
  EXPECT_EQ(kernel.log, (log{"open /dev/i2c-3"})) << "nothing went over the bus";
}

TEST_F(I2cMemory, BusThatAnswersOnEveryAddressFails) {
  for (unsigned long functions : {plain_messages, smbus_blocks, smbus_bytes}) {
    kernel.functions = functions;
    kernel.answers_everywhere = true;
    bytes out(1);
    EXPECT_EQ(read(0, 0, out), 5u);
    EXPECT_EQ(memory->write(0, 26, 1), 5u);
    EXPECT_EQ(kernel.lower[26], 26);
    EXPECT_EQ(memory->trouble(),
              "/dev/i2c-3 is answered at 0x7f too, where nobody can be: a line is held down, or a "
              "chip answers on every address");
  }
}

TEST_F(I2cMemory, NobodysAddressIsTriedOnceForEachModuleThatComes) {
  for (unsigned long functions : {plain_messages, smbus_blocks}) {
    kernel.functions = functions;
    kernel.address = 0x51;
    EXPECT_FALSE(memory->present());
    kernel.probes = 0;
    EXPECT_FALSE(memory->present());
    EXPECT_EQ(kernel.probes, 0) << "an empty cage is left alone";
    kernel.address = 0x50;
    bytes out(1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(read(1, 130, out), 0u);
    EXPECT_EQ(out[0], 18);
    EXPECT_EQ(kernel.probes, 1);
  }
}

TEST_F(I2cMemory, LostArbitrationSaysWhatThatMeans) {
  meet();
  kernel.unanswered = 1;
  kernel.unanswered_code = EAGAIN;
  bytes out(1);
  EXPECT_EQ(read(0, 0, out), static_cast<cerrno>(EAGAIN));
  EXPECT_EQ(memory->trouble(),
            "the adapter lost arbitration: another master is on the bus, or a line is held down");
}

TEST_F(I2cMemory, AnotherAdapterInTheSamePlaceIsReadItsOwnWay) {
  meet();
  EXPECT_EQ(memory->way(), "plain messages");
  kernel.functions = smbus_bytes;
  EXPECT_TRUE(memory->present());
  EXPECT_EQ(memory->way(), "byte transfers");
}

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
