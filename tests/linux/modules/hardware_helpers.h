// What the hardware tests share: files by content, racks by one line.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lum_linux/modules.h"
#include "test_folder.h"

namespace hardware_test {

using bytes = std::vector<uint8_t>;
using ::write_file;

// Gives root's rights up for a while, as an ordinary user has none to give up. Tests of one process
// do not run side by side.
class without_root {
 public:
  explicit without_root(const test_folder &folder) : was_root_(::geteuid() == 0) {
    if (!was_root_) return;
    std::filesystem::permissions(folder.path(), std::filesystem::perms(0755));
    is_root_ = ::seteuid(65534) != 0;
  }
  ~without_root() {
    if (was_root_ && !is_root_ && ::seteuid(0) != 0) std::abort();
  }
  without_root(const without_root &) = delete;
  without_root &operator=(const without_root &) = delete;
  bool is_root() const { return is_root_; }

 private:
  bool was_root_;
  bool is_root_ = false;
};

inline void write_file(const std::filesystem::path &file, const bytes &content) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream.write(reinterpret_cast<const char *>(content.data()),
               static_cast<std::streamsize>(content.size()));
}

inline bytes read_file(const std::filesystem::path &file) {
  std::ifstream stream(file, std::ios::binary);
  return bytes(std::istreambuf_iterator<char>(stream), {});
}

// Byte i of the file holds a value that tells i from its neighbours and its counterparts on other
// pages.
inline bytes numbered(std::size_t size) {
  bytes content(size);
  for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<uint8_t>(i * 7 + i / 128);
  return content;
}

constexpr uint32_t slot = 1;
constexpr uint32_t instance = 0;
constexpr uint32_t port = 3;
constexpr uint32_t rsip = lum_linux::make_rsip(0, slot, instance, port);

inline std::unique_ptr<lum_linux::modules> rack_of(
    std::unique_ptr<lum_linux::module_memory> memory, lum_linux::fault_script faults = {},
    lum_linux::module_backend backend = lum_linux::module_backend::simulated,
    std::filesystem::path description = {}) {
  std::vector<lum_linux::module_placement> placements(1);
  placements[0] = {rsip, backend, std::move(memory), std::move(description), faults};
  return std::make_unique<lum_linux::modules>(std::move(placements));
}

// A simulated module of five pages, numbered as above.
inline std::unique_ptr<lum_linux::modules> simulated_rack(lum_linux::fault_script faults = {}) {
  return rack_of(lum_linux::make_simulated_memory("test", {numbered(128 * 5), {}}), faults);
}

inline cerrno read_one(lum_linux::modules &rack, uint32_t page = 0, uint32_t offset = 0) {
  uint8_t value = 0;
  return rack.read_byte(slot, instance, port, page, offset, &value);
}

inline lum_linux::module_statistics statistics(const lum_linux::modules &rack) {
  return rack.status(rsip)->statistics;
}

}  // namespace hardware_test
