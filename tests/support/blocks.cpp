#include "blocks.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>

#include "spin.h"

namespace support {
namespace {

struct block {
  void *start;
  std::size_t size;
};

struct block_table {
  spin lock;
  std::vector<block> live;
  std::size_t taken = 0;
};

// Never destroyed: blocks are freed after main has ended.
block_table &table() {
  static block_table &the_table = *new block_table;
  return the_table;
}

constinit std::atomic<bool> watched{false};

}  // namespace

block_watch::block_watch() {
  const std::lock_guard hold(table().lock);
  table().live.clear();
  table().taken = 0;
  watched.store(true);
}

block_watch::~block_watch() { watched.store(false); }

std::vector<std::size_t> block_watch::live() const {
  const std::lock_guard hold(table().lock);
  std::vector<std::size_t> sizes;
  for (const block &each : table().live) sizes.push_back(each.size);
  return sizes;
}

std::size_t block_watch::taken() const {
  const std::lock_guard hold(table().lock);
  return table().taken;
}

void block_watch::release() {
  std::vector<block> left;
  {
    const std::lock_guard hold(table().lock);
    left.swap(table().live);
  }
  for (const block &each : left) std::free(each.start);
}

void note_block(void *start, std::size_t size) {
  if (!watched.load(std::memory_order_relaxed) || start == nullptr) return;
  const std::lock_guard hold(table().lock);
  table().live.push_back({start, size});
  ++table().taken;
}

void forget_block(void *start) {
  if (!watched.load(std::memory_order_relaxed) || start == nullptr) return;
  const std::lock_guard hold(table().lock);
  std::erase_if(table().live, [start](const block &each) { return each.start == start; });
}

}  // namespace support
