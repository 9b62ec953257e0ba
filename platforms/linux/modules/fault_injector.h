// Carries a fault script out, transfer by transfer. Not for two threads at once.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <span>

#include "lum_linux/image.h"
#include "lum_linux/module_faults.h"

namespace lum_linux {

enum class transfer_kind { read_byte, read_block, write_byte };

// What happens to one transfer.
struct transfer_plan {
  cerrno refusal = 0;
  bool flip = false;
  bool half = false;
};

class fault_injector {
 public:
  // Starts counting anew; what block reads have seen so far is kept.
  void set(const fault_script &script);
  void release() { script_.hang = false; }
  const fault_script &script() const { return script_; }

  // A transfer that meets a module. Each is to be followed by finished().
  transfer_plan begin(transfer_kind kind);
  // Returns true when the module is to be pulled behind this transfer.
  bool finished();
  // A transfer that meets an empty cage. Returns true when the module is back behind it.
  bool met_empty_cage();

  // Spoils what a read has brought as planned.
  void spoil(const transfer_plan &plan, transfer_kind kind, uint32_t page, uint32_t offset,
             std::span<uint8_t> bytes);
  // Another module is in the cage: nothing of it has been read.
  void forget() { seen_.clear(); }

 private:
  using half_page = std::array<uint8_t, module_page_size>;

  bool draw(uint32_t percent);
  uint8_t &seen(uint32_t page, uint32_t offset);

  fault_script script_;
  std::minstd_rand random_{1};  // one a module: 8 bytes where others keep 5,000
  uint64_t transfers_ = 0;
  uint64_t reads_ = 0;
  uint64_t block_reads_ = 0;
  uint64_t refusable_ = 0;
  uint64_t empty_ = 0;
  std::map<uint32_t, half_page> seen_;  // 0: lower page, N + 1: upper page N
};

}  // namespace lum_linux
