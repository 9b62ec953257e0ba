#include "module_bays.h"

#include <cstring>

#include "script.h"

namespace support {

module_bays &modules = *new module_bays;

static constexpr cerrno no_module = 6;
static constexpr uint32_t half = 128;

void module_memory::put(uint32_t page, uint32_t offset, std::initializer_list<uint8_t> bytes) {
  const std::lock_guard hold(lock_);
  for (const uint8_t byte : bytes) cell(page, offset++) = byte;
}

void module_memory::put_text(uint32_t page, uint32_t offset, std::string_view text) {
  const std::lock_guard hold(lock_);
  for (const char c : text) cell(page, offset++) = static_cast<uint8_t>(c);
}

void module_memory::put_be16(uint32_t page, uint32_t offset, uint16_t value) {
  put(page, offset, {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)});
}

uint8_t module_memory::at(uint32_t page, uint32_t offset) {
  const std::lock_guard hold(lock_);
  return cell(page, offset);
}

uint16_t module_memory::be16_at(uint32_t page, uint32_t offset) {
  return static_cast<uint16_t>(at(page, offset) << 8 | at(page, offset + 1));
}

void module_memory::fail_transfers(cerrno code) {
  const std::lock_guard hold(lock_);
  failing_ = code;
}

void module_memory::leave_on_failure(uint8_t filler) {
  const std::lock_guard hold(lock_);
  filler_ = filler;
}

uint8_t &module_memory::cell(uint32_t page, uint32_t offset) {
  offset %= 2 * half;
  return offset < half ? lower_[offset] : upper_[page % 256][offset - half];
}

module_memory &module_bays::at(uint32_t slot, uint32_t instance, uint32_t port) {
  const std::lock_guard hold(lock_);
  auto &bay = modules_[{slot, instance, port}];
  if (!bay) bay = std::make_shared<module_memory>();
  return *bay;
}

void module_bays::remove(uint32_t slot, uint32_t instance, uint32_t port) {
  const std::lock_guard hold(lock_);
  modules_.erase({slot, instance, port});
}

cerrno module_bays::read(const char *call, uint32_t slot, uint32_t instance, uint32_t port,
                         uint32_t page, uint32_t offset, int32_t length, uint8_t *destination) {
  if (before_transfer) before_transfer();
  const auto module = find({slot, instance, port});
  const auto planned_code = script.verdict(call, module.get());
  if (!module) return no_module;
  const std::lock_guard hold(module->lock_);
  const cerrno rc = planned_code.value_or(module->failing_);
  if (rc != 0) {
    if (module->filler_) std::memset(destination, *module->filler_, static_cast<size_t>(length));
    return rc;
  }
  for (int32_t i = 0; i < length; ++i) {
    destination[i] = module->cell(page, offset + static_cast<uint32_t>(i));
  }
  return 0;
}

cerrno module_bays::write(uint32_t slot, uint32_t instance, uint32_t port, uint32_t page,
                          uint32_t offset, uint8_t value) {
  if (before_transfer) before_transfer();
  const auto module = find({slot, instance, port});
  const auto planned_code = script.verdict("i2c_write_byte", module.get());
  if (!module) return no_module;
  const std::lock_guard hold(module->lock_);
  if (const cerrno rc = planned_code.value_or(module->failing_); rc != 0) return rc;
  module->cell(page, offset) = value;
  return 0;
}

std::shared_ptr<module_memory> module_bays::find(const place &where) {
  const std::lock_guard hold(lock_);
  const auto found = modules_.find(where);
  return found == modules_.end() ? nullptr : found->second;
}

}  // namespace support
