// Ordered trees with several indices: AVL trees of Boost.Intrusive over links in the user's node.
#include "services/immortal.h"
#include "wavl.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <span>
#include <vector>

#include <boost/intrusive/avltree_algorithms.hpp>

namespace {

// A link's state: the balance in the low two bits, above it the id of the index the link is in, 0
// when it is in none. So a link says by itself whether it is linked, and where.
constexpr uint64_t balance_mask = 3;
constexpr unsigned owner_shift = 2;

struct link_traits {
  using node = wavl_link;
  using node_ptr = wavl_link *;
  using const_node_ptr = const wavl_link *;
  using balance = uint64_t;

  static node_ptr get_parent(const_node_ptr n) { return n->parent; }
  static void set_parent(node_ptr n, node_ptr parent) { n->parent = parent; }
  static node_ptr get_left(const_node_ptr n) { return n->left; }
  static void set_left(node_ptr n, node_ptr left) { n->left = left; }
  static node_ptr get_right(const_node_ptr n) { return n->right; }
  static void set_right(node_ptr n, node_ptr right) { n->right = right; }
  static balance get_balance(const_node_ptr n) { return n->state & balance_mask; }
  static void set_balance(node_ptr n, balance b) { n->state = (n->state & ~balance_mask) | b; }
  static balance zero() { return 0; }
  static balance negative() { return 1; }
  static balance positive() { return 2; }
};
using algorithms = boost::intrusive::avltree_algorithms<link_traits>;

// One index. The caller holds the tree's lock.
class ordered_index {
 public:
  ordered_index(uint64_t id, std::size_t link_offset, wavl_comparator compare)
      : id_(id), link_offset_(link_offset), compare_(compare) {
    algorithms::init_header(&header_);
  }
  ordered_index(const ordered_index &) = delete;
  ordered_index &operator=(const ordered_index &) = delete;

  bool contains(const void *node) const { return link_of(node)->state >> owner_shift == id_; }

  bool insert(void *node) {
    wavl_link *link = link_of(node);
    if (link->state >> owner_shift != 0) return false;
    algorithms::insert_commit_data place;
    const void *key = node;
    if (!algorithms::insert_unique_check(&header_, key, order{*this}, place).second) return false;
    link->state = id_ << owner_shift;
    algorithms::insert_unique_commit(&header_, link, place);
    return true;
  }

  bool erase(void *node) {
    if (!contains(node)) return false;
    wavl_link *link = link_of(node);
    algorithms::erase(&header_, link);
    *link = {};
    return true;
  }

  void *find(const void *key_node) const {
    return node_at(algorithms::find(&header_, key_node, order{*this}));
  }

  void *first() const { return node_at(algorithms::begin_node(&header_)); }

  // The node behind `node`, or behind its key when it is not linked any more.
  void *after(const void *node) const {
    if (contains(node))
      return node_at(algorithms::next_node(const_cast<wavl_link *>(link_of(node))));
    return node_at(algorithms::upper_bound(&header_, node, order{*this}));
  }

 private:
  // The algorithms compare nodes in the tree, which they know by their links, with key nodes.
  struct order {
    const ordered_index &index;
    bool operator()(const auto *a, const auto *b) const {
      return index.compare_(key(a), key(b)) == 0;
    }
    const void *key(const wavl_link *link) const { return index.node_at(link); }
    const void *key(const void *node) const { return node; }
  };

  const wavl_link *link_of(const void *node) const {
    return reinterpret_cast<const wavl_link *>(static_cast<const char *>(node) + link_offset_);
  }
  wavl_link *link_of(void *node) const {
    return reinterpret_cast<wavl_link *>(static_cast<char *>(node) + link_offset_);
  }
  void *node_at(const wavl_link *link) const {
    if (link == &header_) return nullptr;
    return const_cast<char *>(reinterpret_cast<const char *>(link) - link_offset_);
  }

  wavl_link header_ = {};
  uint64_t id_;
  std::size_t link_offset_;
  wavl_comparator compare_;
};

// Reads and walk steps hold the lock shared, changes exclusively.
struct tree_state {
  std::shared_mutex lock;
  std::vector<std::unique_ptr<ordered_index>> indices;
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
      tree->indices.push_back(std::make_unique<ordered_index>(
          ++last_id_, link_offset + i * sizeof(wavl_link), compare[i]));
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
  return state != nullptr && index < state->indices.size() ? state : nullptr;
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
  return state->indices[index]->insert(node);
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
  for (const auto &index : state->indices) any = index->erase(node) || any;
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
  tree_state *state = state_with(tree, index);
  if (state == nullptr) return nullptr;
  const std::shared_lock hold(state->lock);
  return state->indices[index]->first();
}

void *wavl_get_next(wavl_tree *tree, const void *node, uint32_t index) {
  tree_state *state = state_with(tree, index);
  if (state == nullptr || node == nullptr) return nullptr;
  const std::shared_lock hold(state->lock);
  return state->indices[index]->after(node);
}
