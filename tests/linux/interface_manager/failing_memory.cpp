#include "interface_manager/failing_memory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t served_left = 0;
thread_local uint64_t failed_left = 0;

bool is_to_fail() {
  if (failed_left == 0) return false;
  if (served_left > 0) {
    --served_left;
    return false;
  }
  --failed_left;
  return true;
}

}  // namespace

void memory_runs_out(uint64_t served, uint64_t failed) {
  served_left = served;
  failed_left = failed;
}

// These stand in for the standard library's in the whole process; its other forms call them.
void *operator new(std::size_t size) {
  void *block = is_to_fail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void *block) noexcept { std::free(block); }
void operator delete(void *block, std::size_t) noexcept { std::free(block); }
