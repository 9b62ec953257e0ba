#include "spare_memory.h"

#include <malloc.h>

#include <atomic>

namespace lumd {
namespace {

constexpr int arenas = 2;                // else each thread that answers keeps one
constexpr int large_block = 512 * 1024;  // bytes; from there on a block is the system's
constexpr unsigned many_answers = 2;     // at once
std::atomic<unsigned> answers_under_way{0};
std::atomic<bool> were_many{false};

}  // namespace

void spare_memory() {
  ::mallopt(M_ARENA_MAX, arenas);
  ::mallopt(M_MMAP_THRESHOLD, large_block);
}

answer_memory::answer_memory() {
  if (answers_under_way.fetch_add(1) + 1 >= many_answers) were_many = true;
}

answer_memory::~answer_memory() {
  if (answers_under_way.fetch_sub(1) == 1 && were_many.exchange(false)) ::malloc_trim(0);
}

}  // namespace lumd
