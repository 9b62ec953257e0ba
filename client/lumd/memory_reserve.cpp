#include "memory_reserve.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace lumd {
namespace {

// What the largest answer's documents take to be destroyed, by measure: a few times.
constexpr std::size_t needed = 256 * std::size_t{1024};

struct part {
  std::size_t size = needed / memory_failures_outlived;
  std::atomic<void *> block{nullptr};
};

// One for each failure in a row.
constinit std::array<part, memory_failures_outlived> to_go_on{};
constinit part to_refuse{needed};

bool give_up(part &given) {
  void *block = given.block.exchange(nullptr);
  std::free(block);
  return block != nullptr;
}

void renew(part &given) {
  if (given.block.load(std::memory_order_relaxed) != nullptr) return;
  void *block = std::malloc(given.size);
  if (block == nullptr) return;
  std::memset(block, 1, given.size);  // so that the system has really given it
  void *none = nullptr;
  if (!given.block.compare_exchange_strong(none, block)) std::free(block);
}

void memory_is_out() {
  if (std::any_of(to_go_on.begin(), to_go_on.end(), give_up)) return;
  give_up(to_refuse);
  throw std::bad_alloc();
}

}  // namespace

void keep_memory_reserve() {
  renew_memory_reserve();
  std::set_new_handler(memory_is_out);
}

// What refusals take comes first: they must not end the process.
void renew_memory_reserve() {
  renew(to_refuse);
  std::for_each(to_go_on.begin(), to_go_on.end(), renew);
}

}  // namespace lumd
