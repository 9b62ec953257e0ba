// A module's memory without a module.
#include "lum_linux/module_memory.h"

#include <algorithm>
#include <utility>

namespace lum_linux {
namespace {

class simulated_memory final : public module_memory {
 public:
  simulated_memory(std::string name, module_clock clock)
      : name_(std::move(name)), clock_(std::move(clock)) {}

  cerrno read(uint32_t page, uint32_t offset, std::span<uint8_t> out) override {
    if (!present()) return module_absent;
    for (std::size_t i = 0; i < out.size(); ++i) {
      const std::size_t position = eeprom_position(page, offset + static_cast<uint32_t>(i));
      if (position >= bytes_.size()) return module_failing;
      out[i] = bytes_[position];
    }
    if (offset < module_page_size) move_readings(offset, out);
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
    motions_ = image.motions;
    put_in_ = clock_();
    ++insertion_;
    return module_ok;
  }

  std::string location() const override { return name_; }

 private:
  // The words of moving readings, as far as they are among what is read from `offset` on.
  void move_readings(uint32_t offset, std::span<uint8_t> out) {
    const std::chrono::duration<double> age = clock_() - put_in_;
    for (const reading_motion &motion : motions_) {
      const auto still =
          static_cast<uint16_t>(bytes_[motion.offset] << 8 | bytes_[motion.offset + 1]);
      const uint16_t moved = displaced_word(motion.unit, still, displacement(motion, age.count()));
      const std::size_t high = motion.offset - offset;
      if (motion.offset >= offset && high < out.size())
        out[high] = static_cast<uint8_t>(moved >> 8);
      const std::size_t low = motion.offset + 1 - offset;
      if (motion.offset + 1 >= offset && low < out.size()) out[low] = static_cast<uint8_t>(moved);
    }
  }

  std::string name_;
  module_clock clock_;
  std::vector<uint8_t> bytes_;  // empty: no module
  std::vector<reading_motion> motions_;
  std::chrono::steady_clock::time_point put_in_;
  uint64_t insertion_ = 0;
};

}  // namespace

std::unique_ptr<module_memory> make_simulated_memory(std::string name) {
  return std::make_unique<simulated_memory>(std::move(name), std::chrono::steady_clock::now);
}

std::unique_ptr<module_memory> make_simulated_memory(std::string name, const module_image &image) {
  auto memory = make_simulated_memory(std::move(name));
  memory->replace(image);
  return memory;
}

std::unique_ptr<module_memory> make_simulated_memory(std::string name, const module_image &image,
                                                     module_clock clock) {
  auto memory = std::make_unique<simulated_memory>(std::move(name), std::move(clock));
  memory->replace(image);
  return memory;
}

}  // namespace lum_linux
