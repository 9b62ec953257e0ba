// A dump of a module's memory: as much of it as somebody saved.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumctl {

class memory_dump {
 public:
  // What lies behind the last page that there can be is counted and not kept.
  void put(std::size_t position, std::span<const std::uint8_t> bytes);

  // Offsets below 128 are of the lower page, whatever the page.
  bool has(std::uint32_t page, std::uint32_t offset, std::size_t length = 1) const;
  std::optional<std::uint8_t> byte(std::uint32_t page, std::uint32_t offset) const;
  // High byte first.
  std::optional<std::uint16_t> word(std::uint32_t page, std::uint32_t offset) const;

  // The upper pages of which something is there.
  std::vector<std::uint32_t> pages() const;
  std::size_t known() const;  // bytes
  std::size_t behind() const { return behind_; }

 private:
  std::vector<std::uint8_t> bytes_;  // as in an `eeprom` file
  std::vector<bool> known_;
  std::size_t behind_ = 0;
};

enum class dump_layout {
  eeprom,    // the lower page at 0, upper page N at 128 * (N + 1)
  text,      // pages in hexadecimal, as lumctl and lum-module-image print them
  document,  // the document of `lumctl show module --page`
};

struct dump_reading {
  std::optional<memory_dump> dump;
  dump_layout layout = dump_layout::eeprom;
  std::string wrong;  // without a dump: why, and what was expected
};

// More is no dump of one module.
inline constexpr std::size_t longest_dump = std::size_t{4} * 1024 * 1024;

// What `content`, of any bytes, is a dump of.
dump_reading read_dump(std::string_view content);

}  // namespace lumctl
