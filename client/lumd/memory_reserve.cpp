#include "memory_reserve.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace lumd {
namespace {

// What the largest answer's documents take to be destroyed, by measure: a few times.
constexpr std::size_t part_size = 256 * std::size_t{1024};

constinit std::atomic<void *> to_go_on{nullptr};
constinit std::atomic<void *> to_refuse{nullptr};

bool give_up(std::atomic<void *> &part) {
  void *block = part.exchange(nullptr);
  std::free(block);
  return block != nullptr;
}

void renew(std::atomic<void *> &part) {
  if (part.load(std::memory_order_relaxed) != nullptr) return;
  void *block = std::malloc(part_size);
  if (block == nullptr) return;
  std::memset(block, 1, part_size);  // so that the system has really given it
  void *none = nullptr;
  if (!part.compare_exchange_strong(none, block)) std::free(block);
}

void memory_is_out() {
  if (give_up(to_go_on)) return;
  give_up(to_refuse);
  throw std::bad_alloc();
}

}  // namespace

void keep_memory_reserve() {
  renew_memory_reserve();
  std::set_new_handler(memory_is_out);
}

// The second part first: a refusal must not end the process.
void renew_memory_reserve() {
  renew(to_refuse);
  renew(to_go_on);
}

}  // namespace lumd
