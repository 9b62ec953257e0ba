// A module's memory without a module.
#include "lum_linux/module_memory.h"

#include <algorithm>
#include <utility>

namespace lum_linux {
namespace {

class simulated_memory final : public module_memory {
 public:
  explicit simulated_memory(std::string name) : name_(std::move(name)) {}

  cerrno read(uint32_t page, uint32_t offset, std::span<uint8_t> out) override {
    if (!present()) return module_absent;
    for (std::size_t i = 0; i < out.size(); ++i) {
      const std::size_t position = eeprom_position(page, offset + static_cast<uint32_t>(i));
      if (position >= bytes_.size()) return module_failing;
      out[i] = bytes_[position];
    }
    return module_ok;
  }

  cerrno write(uint32_t page, uint32_t offset, uint8_t value) override {
    if (!present()) return module_absent;
    const std::size_t position = eeprom_position(page, offset);
    if (position >= bytes_.size()) return module_failing;
    bytes_[position] = value;
    return module_ok;
  }

  bool present() override { return !bytes_.empty(); }
  uint64_t insertion() override { return insertion_; }

  cerrno replace(const module_image &image) override {
    bytes_ = image.bytes;
    ++insertion_;
    return module_ok;
  }

  std::string location() const override { return name_; }

 private:
  std::string name_;
  std::vector<uint8_t> bytes_;  // empty: no module
  uint64_t insertion_ = 0;
};

}  // namespace

std::unique_ptr<module_memory> make_simulated_memory(std::string name) {
  return std::make_unique<simulated_memory>(std::move(name));
}

std::unique_ptr<module_memory> make_simulated_memory(std::string name, const module_image &image) {
  auto memory = make_simulated_memory(std::move(name));
  memory->replace(image);
  return memory;
}

}  // namespace lum_linux
