// Whether an adapter's block reads bring what its byte reads bring.
//
// Some adapters, and what plays one, offer block reads that do not heed the module's page select:
// they bring the bytes of another page without an error. So both ways are compared until a block
// read has shown different bytes for two pages at the same place, each as the byte reads had them.
// Where no two pages differ within a while, byte reads it is.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <span>

#include "lum_linux/image.h"

namespace lum_linux {

class block_trust {
 public:
  bool is_proven() const { return verdict_ == verdict::proven; }
  bool is_refused() const { return verdict_ == verdict::refused; }

  // Both ways have brought these bytes of an upper page.
  void agree(uint32_t page, uint8_t offset, std::span<const uint8_t> bytes);
  void refuse() { verdict_ = verdict::refused; }
  // The module may be another from now on, the adapter is the same.
  void forget_pages() { page_.reset(); }

 private:
  enum class verdict : uint8_t { open, proven, refused };

  static constexpr int max_comparisons = 64;

  verdict verdict_ = verdict::open;
  int comparisons_ = 0;
  std::optional<uint32_t> page_;  // of the bytes below
  std::array<uint8_t, module_page_size> bytes_ = {};
  std::bitset<module_page_size> known_;
};

}  // namespace lum_linux
