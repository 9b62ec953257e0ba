#include "lum_ports_db/node_keeper.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

#include "base/shared.h"

namespace lum {
namespace {

// The clock of the keeper: each removal is one tick. A section notes the time it was opened at, and
// a node removed at time t is safe to free when no open section is older than t.
std::atomic<std::uint64_t> now{1};

// One per thread that has ever opened a section; reused after the thread's end, never freed.
struct reader_slot {
  std::atomic<std::uint64_t> opened_at{0};  // 0: no section open
  std::atomic<bool> taken{true};
  reader_slot *next = nullptr;
};
std::atomic<reader_slot *> slots{nullptr};

// Sections of threads for which there was no memory for a slot; they hold back every node.
std::atomic<std::uint32_t> readers_without_slot{0};

std::atomic<port_node *> retired_nodes{nullptr};
std::atomic<std::uint64_t> retired_count{0};
std::atomic<std::uint64_t> freed_count{0};

reader_slot *take_slot() {
  for (reader_slot *slot = slots.load(); slot != nullptr; slot = slot->next) {
    bool taken = false;
    if (slot->taken.compare_exchange_strong(taken, true)) return slot;
  }
  auto *slot = new (std::nothrow) reader_slot;
  if (slot == nullptr) return nullptr;
  slot->next = slots.load();
  while (!slots.compare_exchange_weak(slot->next, slot)) {
  }
  return slot;
}

// What a thread has of it. Nothing of it is taken down: a section may be opened at the very end.
// Each look-up comes here twice, so it is where a thread finds it without a call.
struct thread_reader {
  reader_slot *slot = nullptr;
  unsigned depth = 0;
  bool keeps_slot = false;  // between sections, until the thread ends
};
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_reader this_reader;

void give_slot_back() {
  if (this_reader.slot == nullptr) return;
  this_reader.slot->taken.store(false);
  this_reader.slot = nullptr;
}

// Gives a thread's slot back when the thread ends. An object with a destructor would do that too,
// but a thread that has no memory for registering one ends the process.
class end_of_threads {
 public:
  end_of_threads() : is_told_(pthread_key_create(&key_, [](void *) { give_slot_back(); }) == 0) {}
  bool await(reader_slot *slot) const { return is_told_ && pthread_setspecific(key_, slot) == 0; }

 private:
  pthread_key_t key_ = 0;
  bool is_told_;
};
const end_of_threads threads_end;

// A thread whose end nobody is told of has a slot for one section at a time.
void take_slot_for_thread() {
  this_reader.slot = take_slot();
  this_reader.keeps_slot = this_reader.slot != nullptr && threads_end.await(this_reader.slot);
}

// The opening time of the oldest open section.
std::uint64_t oldest_section() {
  if (readers_without_slot.load() != 0) return 0;
  std::uint64_t oldest = std::numeric_limits<std::uint64_t>::max();
  for (const reader_slot *slot = slots.load(); slot != nullptr; slot = slot->next) {
    const std::uint64_t opened_at = slot->opened_at.load();
    if (opened_at != 0 && opened_at < oldest) oldest = opened_at;
  }
  return oldest;
}

void push_retired(port_node *node) {
  node->next_retired = retired_nodes.load();
  while (!retired_nodes.compare_exchange_weak(node->next_retired, node)) {
  }
}

// A mutex that a deletion still keeps is not destroyed: its owner may be gone.
void free_node(port_node *node) {
  if (node->data.mutex_kept_by == 0) pthread_mutex_destroy(&node->data.port_mutex);
  std::free(node);
  freed_count.fetch_add(1);
}

// Takes the list of removed nodes as a whole, frees what is safe and puts the rest back. A node
// that is put back just as the last section closes is freed with the next one.
void free_unreachable_nodes() {
  port_node *node = retired_nodes.exchange(nullptr);
  if (node == nullptr) return;
  const std::uint64_t oldest = oldest_section();
  while (node != nullptr) {
    port_node *next = node->next_retired;
    if (node->retired_at <= oldest) {
      free_node(node);
    } else {
      push_retired(node);
    }
    node = next;
  }
}

}  // namespace

ports_reader::ports_reader() {
  if (this_reader.depth++ != 0) return;
  if (this_reader.slot == nullptr) take_slot_for_thread();
  if (this_reader.slot != nullptr) {
    this_reader.slot->opened_at.store(now.load());
  } else {
    readers_without_slot.fetch_add(1);
  }
}

ports_reader::~ports_reader() {
  if (--this_reader.depth != 0) return;
  if (this_reader.slot != nullptr) {
    // What the section has read is read before it is closed; nothing is to be seen at once.
    this_reader.slot->opened_at.store(0, std::memory_order_release);
    if (!this_reader.keeps_slot) give_slot_back();
  } else {
    readers_without_slot.fetch_sub(1);
  }
  if (retired_nodes.load() != nullptr) free_unreachable_nodes();
}

bool in_reader_section() { return this_reader.depth != 0; }

void retire_node(port_node *node) {
  shared_store(node->data.removed, 1);
  node->retired_at = now.fetch_add(1) + 1;
  retired_count.fetch_add(1);
  push_retired(node);
}

keeper_counts node_keeper_counts() { return {retired_count.load(), freed_count.load()}; }

}  // namespace lum
