#include "modules/block_trust.h"

namespace lum_linux {

void block_trust::agree(uint32_t page, uint8_t offset, std::span<const uint8_t> bytes) {
  if (!page_) {
    page_ = page;
    known_.reset();
  }
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::size_t at = offset % module_page_size + i;
    if (page == *page_) {
      bytes_[at] = bytes[i];
      known_.set(at);
    } else if (known_[at] && bytes_[at] != bytes[i]) {
      verdict_ = verdict::proven;
      return;
    }
  }
  if (++comparisons_ == max_comparisons) refuse();
}

}  // namespace lum_linux
