#include "played_bus.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>

namespace kernel_test {
namespace {

constexpr uint32_t half = 128;

// A byte of a file; what is behind its end reads as 0xFF, as a line that nobody drives.
uint8_t byte_at(const std::filesystem::path &file, uint32_t position) {
  std::ifstream stream(file, std::ios::binary);
  stream.seekg(position);
  const int byte = stream.get();
  return byte == std::ifstream::traits_type::eof() ? 0xFF : static_cast<uint8_t>(byte);
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

int played_bus::read(uint16_t address, uint8_t offset, std::vector<uint8_t> &bytes, bool is_block) {
  const std::lock_guard held(mutex_);
  note(fmt::format("read {:02x} {} {}", address, offset, bytes.size()));
  if (!is_answered(address)) return ENXIO;
  const bool is_blind = is_block && behaviour().contains("blind-blocks");
  for (uint8_t &byte : bytes) byte = fetch(address, offset++, is_blind);
  return 0;
}

int played_bus::write(uint16_t address, uint8_t offset, uint8_t value) {
  const std::lock_guard held(mutex_);
  note(fmt::format("write {:02x} {} {}", address, offset, value));
  if (!is_answered(address)) return ENXIO;
  if (offset == 127 && behaviour().contains("keeps-page")) return 0;
  const auto file = memory_of(address);
  const uint32_t position = offset < half ? offset : byte_at(file, 127) * half + offset;
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

uint8_t played_bus::fetch(uint16_t address, uint8_t offset, bool is_blind) const {
  const auto file = memory_of(address);
  if (!std::filesystem::exists(file)) return 0;
  if (offset < half) return byte_at(file, offset);
  const uint8_t page = is_blind ? 0 : byte_at(file, 127);
  if (byte_at(file, 126) != 1) return byte_at(file, page * half + offset);
  return byte_at(folder_ / fmt::format("{:02x}.bank1", address), page * half + offset - half);
}

}  // namespace kernel_test
