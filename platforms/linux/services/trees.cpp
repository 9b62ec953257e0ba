// Ordered trees with several indices. An index is an array of its nodes in the order of their keys,
// so that a walk goes from one node to the next with one load; a link in the user's node says only
// which index it is in.
#include "services/immortal.h"
#include "services/sharing_lock.h"
#include "wavl.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <span>
#include <vector>

namespace {

using lum_linux::sharing_lock;

class ordered_index;
struct tree_state;
using slot = std::atomic<void *>;

// Where the thread's latest step has come to: nearly always where the next one starts. Holds for as
// long as the index is what it was, which its version tells.
struct walk_position {
  const tree_state *tree = nullptr;
  uint32_t index = 0;
  void *node = nullptr;
  const slot *place = nullptr;
  const std::atomic<uint64_t> *version_of_index = nullptr;
  uint64_t version = 0;

  // To the node at `next`, without the lock. False when that needs it.
  bool try_move(const slot *next, void *&found) {
    if (version_of_index->load(std::memory_order_acquire) != version) return false;
    found = next->load(std::memory_order_acquire);
    if (version_of_index->load(std::memory_order_relaxed) != version) return false;
    node = found;
    place = next;
    return true;
  }
};
[[gnu::tls_model("initial-exec")]] constinit thread_local walk_position latest_step;

// What the thread's latest search has found. Searches come in the order of keys, or twice for the
// same node, more often than not.
struct search_position {
  const ordered_index *index = nullptr;
  size_t at = 0;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local search_position latest_search;

// One index. Changed with the tree's lock held exclusively; searched with it held shared; walked
// without, which the version makes safe: a step counts when the version was the same even number
// before and after. Arrays that have become too short are kept, for steps without the lock may
// still read them.
class ordered_index {
 public:
  ordered_index(uint64_t id, std::size_t link_offset, wavl_comparator compare)
      : id_(id), link_offset_(link_offset), compare_(compare) {}

  bool contains(const void *node) const { return link_of(node)->state == id_; }
  size_t size() const { return size_; }

  // Makes room for `count` nodes. May throw std::bad_alloc.
  void reserve(size_t count) {
    if (count < capacity_) return;
    const size_t capacity = std::max({2 * capacity_, count + 1, smallest_capacity});
    auto longer = std::make_unique<slot[]>(capacity);
    for (size_t i = 0; i < size_; ++i) longer[i].store(node_at(i), std::memory_order_relaxed);
    arrays_.push_back(std::move(longer));
    nodes_.store(arrays_.back().get(), std::memory_order_release);
    capacity_ = capacity;
  }

  // There is room for it.
  bool insert(void *node) {
    if (link_of(node)->state != 0) return false;
    const size_t place = first_not_below(node);
    if (place < size_ && is_equal(node_at(place), node)) return false;
    const change here(version_);
    for (size_t i = size_; i > place; --i) put(i, node_at(i - 1));
    put(place, node);
    ++size_;
    link_of(node)->state = id_;
    return true;
  }

  bool erase(void *node) {
    if (!contains(node)) return false;
    const size_t place = place_of(node);
    const change here(version_);
    --size_;
    for (size_t i = place; i < size_; ++i) put(i, node_at(i + 1));
    put(size_, nullptr);
    *link_of(node) = {};
    return true;
  }

  // Looked for where the latest search ended, then behind it, then everywhere.
  void *find(const void *key_node) const {
    search_position &latest = latest_search;
    if (latest.index == this) {
      for (size_t at = latest.at; at < size_ && at <= latest.at + 1; ++at) {
        const int order = compare_(node_at(at), key_node);
        if (order == 1) {
          latest.at = at;
          return node_at(at);
        }
        if (order != 0) break;
      }
    }
    const size_t place = first_not_below(key_node);
    if (place >= size_ || !is_equal(node_at(place), key_node)) return nullptr;
    latest = {this, place};
    return node_at(place);
  }

  // Where a walk begins, before its first step.
  walk_position beginning(const tree_state *tree, uint32_t index) const {
    walk_position here = {tree, index};
    here.version_of_index = &version_;
    here.version = version_.load(std::memory_order_acquire);
    here.place = nodes_.load(std::memory_order_acquire);  // of that version or a later one
    return here;
  }

  // The same with the lock held: the walk stands at the first node, or at the one behind the key of
  // `node`, whether that is linked or not.
  walk_position first(const tree_state *tree, uint32_t index) const {
    return standing_at(0, tree, index);
  }
  walk_position after(const void *node, const tree_state *tree, uint32_t index) const {
    size_t place = first_not_below(node);
    if (place < size_ && is_equal(node_at(place), node)) ++place;
    return standing_at(place, tree, index);
  }

 private:
  static constexpr size_t smallest_capacity = 16;

  // The version is odd for as long as it lives.
  class change {
   public:
    explicit change(std::atomic<uint64_t> &version) : version_(version) {
      version_.store(version_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    ~change() {
      version_.store(version_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    change(const change &) = delete;
    change &operator=(const change &) = delete;

   private:
    std::atomic<uint64_t> &version_;
  };

  walk_position standing_at(size_t at, const tree_state *tree, uint32_t index) const {
    walk_position here = beginning(tree, index);
    here.place += at;
    here.node = node_at(at);
    return here;
  }

  // Null behind the last.
  void *node_at(size_t i) const {
    return nodes_.load(std::memory_order_relaxed)[i].load(std::memory_order_relaxed);
  }

  // Whoever sees the node sees the odd version too.
  void put(size_t i, void *node) {
    nodes_.load(std::memory_order_relaxed)[i].store(node, std::memory_order_release);
  }

  // Of a linked node. One whose key was changed must not be left behind either.
  size_t place_of(const void *node) const {
    size_t place = first_not_below(node);
    if (place < size_ && node_at(place) == node) return place;
    for (place = 0; node_at(place) != node; ++place) {
    }
    return place;
  }

  bool is_equal(const void *a, const void *b) const { return compare_(a, b) == 1; }

  // The place of the first node whose key is not below that of `node`. Every search of an index
  // takes the same number of comparisons, and no branch hangs on them.
  size_t first_not_below(const void *node) const {
    size_t place = 0;
    size_t left = size_;
    while (left > 1) {
      const size_t half = left / 2;
      place += compare_(node_at(place + half - 1), node) == 0 ? half : 0;
      left -= half;
    }
    return left == 1 && compare_(node_at(place), node) == 0 ? place + 1 : place;
  }

  const wavl_link *link_of(const void *node) const {
    return reinterpret_cast<const wavl_link *>(static_cast<const char *>(node) + link_offset_);
  }
  wavl_link *link_of(void *node) const {
    return reinterpret_cast<wavl_link *>(static_cast<char *>(node) + link_offset_);
  }

  std::atomic<uint64_t> version_ = 0;
  std::atomic<slot *> nodes_ = &no_node;
  uint64_t id_;
  std::size_t link_offset_;
  wavl_comparator compare_;
  size_t size_ = 0;
  size_t capacity_ = 1;  // with the null behind the last node
  std::vector<std::unique_ptr<slot[]>> arrays_;
  static inline slot no_node = nullptr;
};

struct tree_state {
  mutable sharing_lock lock;
  std::array<std::unique_ptr<ordered_index>, WAVL_MAX_INDICES> indices;  // those it has come first

  // A node that has its place in one index shall not lack the memory for one in another.
  bool insert(uint32_t index, void *node) {
    try {
      const size_t count = indices[index]->size() + 1;
      for (const auto &each : indices) {
        if (each != nullptr) each->reserve(count);
      }
    } catch (const std::bad_alloc &) {
      return false;
    }
    return indices[index]->insert(node);
  }
};

// Owns every tree. Trees live until the process ends, for there is no call to end one, and threads
// may still walk them while it does.
class tree_registry {
 public:
  tree_state *add(uint32_t indices, std::size_t link_offset,
                  std::span<const wavl_comparator> compare) {
    const std::lock_guard hold(lock_);
    auto tree = std::make_unique<tree_state>();
    for (uint32_t i = 0; i < indices; ++i) {
      tree->indices[i] = std::make_unique<ordered_index>(
          ++last_id_, link_offset + i * sizeof(wavl_link), compare[i]);
    }
    trees_.push_back(std::move(tree));
    return trees_.back().get();
  }

 private:
  std::mutex lock_;
  uint64_t last_id_ = 0;
  std::vector<std::unique_ptr<tree_state>> trees_;
};

tree_registry &registry() {
  static lum_linux::immortal<tree_registry> the_registry;
  return *the_registry;
}

tree_state *state_of(const wavl_tree *tree) {
  if (tree == nullptr) return nullptr;
  auto *field = const_cast<void **>(&tree->implementation);
  return static_cast<tree_state *>(std::atomic_ref(*field).load(std::memory_order_acquire));
}

// The tree when it runs and has the index.
tree_state *state_with(const wavl_tree *tree, uint32_t index) {
  tree_state *state = state_of(tree);
  if (state == nullptr || index >= WAVL_MAX_INDICES) return nullptr;
  return state->indices[index] != nullptr ? state : nullptr;
}

// With the lock. Not inlined: what a step in a walk takes has no need of its registers.
[[gnu::noinline]] void *node_behind(const wavl_tree *tree, const void *node, uint32_t index) {
  const tree_state *state = state_with(tree, index);
  if (state == nullptr || node == nullptr) return nullptr;
  const std::shared_lock hold(state->lock);
  latest_step = state->indices[index]->after(node, state, index);
  return latest_step.node;
}

}  // namespace

cerrno wavl_init(wavl_tree *tree, uint32_t indices, uint32_t link_offset, ...) {
  if (tree == nullptr || indices < 1 || indices > WAVL_MAX_INDICES) return EINVAL;
  if (link_offset % alignof(wavl_link) != 0) return EINVAL;
  if (state_of(tree) != nullptr) return EBUSY;
  wavl_comparator compare[WAVL_MAX_INDICES] = {};
  va_list arguments;
  va_start(arguments, link_offset);
  bool complete = true;
  for (uint32_t i = 0; i < indices; ++i) {
    // The analyzer does not see the va_start above.
    compare[i] = va_arg(arguments, wavl_comparator);  // NOLINT(clang-analyzer-valist.*)
    complete = complete && compare[i] != nullptr;
  }
  va_end(arguments);
  if (!complete) return EINVAL;
  try {
    tree_state *state = registry().add(indices, link_offset, compare);
    std::atomic_ref(tree->implementation).store(state, std::memory_order_release);
    return 0;
  } catch (const std::bad_alloc &) {
    return ENOMEM;
  }
}

int wavl_running(const wavl_tree *tree) { return state_of(tree) != nullptr; }

int wavl_insert_thread(wavl_tree *tree, uint32_t index, void *node) {
  tree_state *state = state_with(tree, index);
  if (state == nullptr || node == nullptr) return 0;
  const std::unique_lock hold(state->lock);
  return state->insert(index, node);
}

int wavl_delete_thread(wavl_tree *tree, uint32_t index, void *node) {
  tree_state *state = state_with(tree, index);
  if (state == nullptr || node == nullptr) return 0;
  const std::unique_lock hold(state->lock);
  return state->indices[index]->erase(node);
}

int wavl_delete(wavl_tree *tree, void *node) {
  tree_state *state = state_of(tree);
  if (state == nullptr || node == nullptr) return 0;
  const std::unique_lock hold(state->lock);
  bool any = false;
  for (const auto &index : state->indices) {
    if (index != nullptr) any = index->erase(node) || any;
  }
  return any;
}

void *wavl_search(wavl_tree *tree, const void *key_node, uint32_t index) {
  tree_state *state = state_with(tree, index);
  if (state == nullptr || key_node == nullptr) return nullptr;
  const std::shared_lock hold(state->lock);
  return state->indices[index]->find(key_node);
}

// The step to the next node is made after the callback, so a callback may take its node out but
// must leave the freeing to somebody after the walk.
uint32_t wavl_walk(wavl_tree *tree, uint32_t index, wavl_callback callback, void *context) {
  if (callback == nullptr) return 0;
  uint32_t visited = 0;
  for (void *node = wavl_get_first(tree, index); node != nullptr;
       node = wavl_get_next(tree, node, index)) {
    ++visited;
    if (callback(node, context) != 0) break;
  }
  return visited;
}

void *wavl_get_first(wavl_tree *tree, uint32_t index) {
  const tree_state *state = state_with(tree, index);
  if (state == nullptr) return nullptr;
  const ordered_index &nodes = *state->indices[index];
  walk_position begun = nodes.beginning(state, index);
  void *found = nullptr;
  if (begun.version % 2 == 0 && begun.try_move(begun.place, found)) {
    latest_step = begun;
    return found;
  }
  const std::shared_lock hold(state->lock);
  latest_step = nodes.first(state, index);
  return latest_step.node;
}

void *wavl_get_next(wavl_tree *tree, const void *node, uint32_t index) {
  walk_position &from = latest_step;
  void *found = nullptr;
  if (node != nullptr && from.node == node && from.index == index && from.tree == state_of(tree) &&
      from.try_move(from.place + 1, found)) {
    return found;
  }
  return node_behind(tree, node, index);
}
