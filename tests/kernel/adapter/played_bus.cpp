#include "played_bus.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace kernel_test {
namespace {

constexpr uint32_t half = 128;

std::vector<uint8_t> content_of(const std::filesystem::path &file) {
  std::ifstream stream(file, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(stream), {});
}

// What is behind the end of a memory reads as 0xFF, as a line that nobody drives.
uint8_t at(const std::vector<uint8_t> &memory, uint32_t position) {
  return position < memory.size() ? memory[position] : 0xFF;
}

}  // namespace

std::set<std::string> played_bus::behaviour() const {
  std::ifstream stream(folder_ / "behaviour");
  std::set<std::string> words;
  for (std::string word; stream >> word;) words.insert(word);
  return words;
}

void played_bus::wait_while_hanging() const {
  while (behaviour().contains("hang")) std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

int played_bus::read(uint16_t address, uint8_t offset, std::vector<uint8_t> &bytes) {
  const std::lock_guard held(mutex_);
  note(fmt::format("read {:02x} {} {}", address, offset, bytes.size()));
  const auto memory = content_of(memory_of(address));
  if (memory.empty()) return behaviour().contains("everywhere") ? 0 : ENXIO;
  const bool is_in_bank = at(memory, 126) == 1;
  const auto bank =
      is_in_bank ? content_of(folder_ / fmt::format("{:02x}.bank1", address)) : memory;
  const uint32_t lower = is_in_bank ? half : 0;  // which the file of a bank does not have
  const uint8_t page = at(memory, 127);
  for (uint8_t &byte : bytes) {
    byte = offset < half ? at(memory, offset) : at(bank, page * half + offset - lower);
    ++offset;
  }
  return 0;
}

int played_bus::write(uint16_t address, uint8_t offset, uint8_t value) {
  const std::lock_guard held(mutex_);
  note(fmt::format("write {:02x} {} {}", address, offset, value));
  if (!is_answered(address)) return ENXIO;
  if (offset == 127 && behaviour().contains("keeps-page")) return 0;
  const auto file = memory_of(address);
  const uint32_t position = offset < half ? offset : at(content_of(file), 127) * half + offset;
  std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
  stream.seekp(position);
  stream.put(static_cast<char>(value));
  return 0;
}

int played_bus::probe(uint16_t address) {
  const std::lock_guard held(mutex_);
  note(fmt::format("probe {:02x}", address));
  return is_answered(address) ? 0 : ENXIO;
}

void played_bus::note(const std::string &line) {
  std::ofstream(folder_ / "log", std::ios::app) << line << '\n';
}

std::filesystem::path played_bus::memory_of(uint16_t address) const {
  return folder_ / fmt::format("{:02x}.eeprom", address);
}

bool played_bus::is_answered(uint16_t address) const {
  return behaviour().contains("everywhere") || std::filesystem::exists(memory_of(address));
}

}  // namespace kernel_test
