// A bus with modules on it, as a folder describes it at the moment of each transfer:
//
//   50.eeprom     the memory of a module at address 0x50; without it nobody answers there. Its
//   bytes
//                 126 and 127 are the selected bank and page.
//   50.bank1      the same module's upper pages in bank 1, page 0 first
//   behaviour     words, see below
//   log           written: a line for each transfer, with the bytes that went over the bus
#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kernel_test {

// Words of the behaviour:
//   offers-blocks, offers-bytes, offers-nothing   what I2C_FUNCS says; plain messages without them
//   refuses       transfers that it offers get EOPNOTSUPP
//   arbitration   every transfer loses arbitration
//   short         a transfer ends before its last message, a block read brings 7 bytes
//   slow          a transfer takes 50 ms
//   hang          a transfer does not end before the word is gone
//   everywhere    every address is acknowledged, and reads zeros
//   keeps-page    byte 127 takes no page
class played_bus {
 public:
  explicit played_bus(std::filesystem::path folder) : folder_(std::move(folder)) {}

  std::set<std::string> behaviour() const;
  void wait_while_hanging() const;

  // Return 0 or an errno.
  int read(uint16_t address, uint8_t offset, std::vector<uint8_t> &bytes);
  int write(uint16_t address, uint8_t offset, uint8_t value);
  // A read without an offset before it.
  int probe(uint16_t address);
  void note(const std::string &line);

 private:
  std::filesystem::path memory_of(uint16_t address) const;
  bool is_answered(uint16_t address) const;

  std::filesystem::path folder_;
  std::mutex mutex_;  // one transfer at a time, but for one that hangs
};

}  // namespace kernel_test
