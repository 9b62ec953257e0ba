#include "modules/fault_injector.h"

namespace lum_linux {
namespace {

bool is_nth(uint64_t count, uint32_t every) { return every != 0 && count % every == 0; }

}  // namespace

void fault_injector::set(const fault_script &script) {
  script_ = script;
  random_.seed(script.seed);
  transfers_ = reads_ = block_reads_ = refusable_ = empty_ = 0;
}

transfer_plan fault_injector::begin(transfer_kind kind) {
  transfer_plan plan;
  ++transfers_;
  const bool is_write = kind == transfer_kind::write_byte;
  if (is_write ? script_.refuse_writes : script_.refuse_reads) {
    ++refusable_;
    const bool drawn = draw(script_.refuse_percent);
    if (is_nth(refusable_, script_.refuse_every) || drawn) plan.refusal = script_.refuse_code;
  }
  if (!is_write) {
    ++reads_;
    const bool drawn = draw(script_.flip_percent);
    plan.flip = is_nth(reads_, script_.flip_every) || drawn;
  }
  if (kind == transfer_kind::read_block) plan.half = is_nth(++block_reads_, script_.half_every);
  return plan;
}

bool fault_injector::finished() {
  return script_.remove_after != 0 && transfers_ == script_.remove_after;
}

bool fault_injector::met_empty_cage() {
  return script_.insert_after != 0 && ++empty_ == script_.insert_after;
}

void fault_injector::spoil(const transfer_plan &plan, transfer_kind kind, uint32_t page,
                           uint32_t offset, std::span<uint8_t> bytes) {
  if (kind == transfer_kind::read_block) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      uint8_t &before = seen(page, offset + static_cast<uint32_t>(i));
      const uint8_t now = bytes[i];
      if (plan.half && i >= bytes.size() / 2) bytes[i] = before;
      before = now;
    }
  }
  if (plan.flip) {
    for (uint32_t i = 0; i < script_.flip_bits; ++i) {
      const auto bit = random_() % (bytes.size() * 8);
      bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] ^ 1u << bit % 8);
    }
  }
}

// Draws also for 0 and 100, so that a changed percentage leaves the other draws as they were.
bool fault_injector::draw(uint32_t percent) { return random_() % 100 < percent; }

uint8_t &fault_injector::seen(uint32_t page, uint32_t offset) {
  if (offset < module_page_size) return seen_[0][offset];
  return seen_[page + 1][offset - module_page_size];
}

}  // namespace lum_linux
