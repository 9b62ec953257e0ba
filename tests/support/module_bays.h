// Modules in memory, one per (slot, instance, port).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <tuple>

#include "cerr.h"
#include "spin.h"

namespace support {

// 256 pages of 256 bytes; the lower halves of all pages are one.
class module_memory {
 public:
  void put(uint32_t page, uint32_t offset, std::initializer_list<uint8_t> bytes);
  void put_text(uint32_t page, uint32_t offset, std::string_view text);
  void put_be16(uint32_t page, uint32_t offset, uint16_t value);
  uint8_t at(uint32_t page, uint32_t offset);
  uint16_t be16_at(uint32_t page, uint32_t offset);

  // From now on every transfer fails with this code; 0: none.
  void fail_transfers(cerrno code);
  // What a failed read leaves in the destination; by default nothing.
  void leave_on_failure(uint8_t filler);

 private:
  friend class module_bays;
  uint8_t &cell(uint32_t page, uint32_t offset);

  spin lock_;
  std::array<uint8_t, 128> lower_ = {};
  std::map<uint32_t, std::array<uint8_t, 128>> upper_;
  cerrno failing_ = 0;
  std::optional<uint8_t> filler_;
};

// Transfers are recorded as i2c_read_byte(slot, instance, port, page, offset), i2c_read_block(...,
// length) and i2c_write_byte(..., value). The script's object for them is the module. An absent
// module answers 6.
class module_bays {
 public:
  module_memory &at(uint32_t slot, uint32_t instance, uint32_t port);  // puts a module in if absent
  void remove(uint32_t slot, uint32_t instance, uint32_t port);
  // Runs before each transfer, on its thread.
  std::function<void()> before_transfer;

  cerrno read(const char *call, uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
              uint32_t offset, int32_t length, uint8_t *destination);
  cerrno write(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page, uint32_t offset,
               uint8_t value);

 private:
  using place = std::tuple<uint32_t, uint32_t, uint32_t>;
  std::shared_ptr<module_memory> find(const place &where);

  spin lock_;
  std::map<place, std::shared_ptr<module_memory>> modules_;
};

extern module_bays &modules;

}  // namespace support
