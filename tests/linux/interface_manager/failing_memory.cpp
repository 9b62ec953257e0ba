#include "interface_manager/failing_memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local uint64_t served_left = 0;
thread_local uint64_t failed_left = 0;
thread_local uint64_t failed_so_far = 0;
thread_local bool is_spared = false;  // from what runs out elsewhere

std::atomic<bool> runs_out_elsewhere{false};
std::atomic<uint64_t> asked_elsewhere{0};
std::atomic<uint64_t> first_elsewhere{0};  // of those that fail
std::atomic<uint64_t> failed_elsewhere{0};

bool is_to_fail_elsewhere() {
  if (is_spared || !runs_out_elsewhere) return false;
  const uint64_t asked = asked_elsewhere++;
  return asked >= first_elsewhere && asked - first_elsewhere < failed_elsewhere;
}

bool is_to_fail() {
  if (failed_left == 0) return is_to_fail_elsewhere();
  if (served_left > 0) {
    --served_left;
    return false;
  }
  --failed_left;
  ++failed_so_far;
  return true;
}

}  // namespace

uint64_t memory_runs_out(uint64_t served, uint64_t failed) {
  served_left = served;
  failed_left = failed;
  return std::exchange(failed_so_far, 0);
}

uint64_t memory_runs_out_elsewhere(uint64_t served, uint64_t failed) {
  runs_out_elsewhere = false;
  is_spared = true;
  const uint64_t asked = asked_elsewhere.exchange(0);
  const uint64_t behind = asked > first_elsewhere ? asked - first_elsewhere : 0;
  const uint64_t failed_so_far_elsewhere = std::min<uint64_t>(behind, failed_elsewhere);
  first_elsewhere = served;
  failed_elsewhere = failed;
  runs_out_elsewhere = failed != 0;
  return failed_so_far_elsewhere;
}

// These stand in for the standard library's in the whole process; its other forms call them.
void *operator new(std::size_t size) {
  void *block = is_to_fail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void *block) noexcept { std::free(block); }
void operator delete(void *block, std::size_t) noexcept { std::free(block); }
