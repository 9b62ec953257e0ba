// Trees: an ordered set of node addresses per index, all under one lock. The comparators look at
// the keys inside the nodes, so a node's key must not change while the node is in the set.
#include <cstdarg>
#include <mutex>
#include <set>
#include <vector>

#include "wavl.h"

namespace {

struct smaller_key {
  wavl_comparator compare;
  bool operator()(const void *first, const void *second) const {
    return compare(first, second) == 0;
  }
};
using index_set = std::set<const void *, smaller_key>;

struct forest {
  std::mutex lock;
  std::vector<index_set> indices;

  // The node itself, not one of the same key.
  bool holds(std::uint32_t index, const void *node) const {
    const auto found = indices[index].find(node);
    return found != indices[index].end() && *found == node;
  }
  bool erase(std::uint32_t index, const void *node) {
    if (!holds(index, node)) return false;
    indices[index].erase(node);
    return true;
  }
};

forest *forest_of(const wavl_tree *tree) { return static_cast<forest *>(tree->implementation); }

void *node_at(const index_set &index, index_set::const_iterator place) {
  return place == index.end() ? nullptr : const_cast<void *>(*place);
}

// Runs `action` on the forest with its lock held; `otherwise` where there is no such index.
template <typename Result, typename Action>
Result locked(const wavl_tree *tree, std::uint32_t index, Result otherwise, Action action) {
  forest *trees = forest_of(tree);
  if (trees == nullptr || index >= trees->indices.size()) return otherwise;
  const std::lock_guard hold(trees->lock);
  return action(*trees);
}

}  // namespace

// The links inside the nodes are not needed here.
cerrno wavl_init(wavl_tree *tree, std::uint32_t indices, std::uint32_t link_offset, ...) {
  auto *trees = new forest;
  std::va_list comparators;
  va_start(comparators, link_offset);
  for (std::uint32_t i = 0; i < indices; ++i) {
    trees->indices.emplace_back(smaller_key{va_arg(comparators, wavl_comparator)});
  }
  va_end(comparators);
  tree->implementation = trees;
  return 0;
}

int wavl_running(const wavl_tree *tree) { return tree->implementation != nullptr; }

int wavl_insert_thread(wavl_tree *tree, std::uint32_t index, void *node) {
  return locked(tree, index, 0,
                [&](forest &trees) -> int { return trees.indices[index].insert(node).second; });
}

int wavl_delete_thread(wavl_tree *tree, std::uint32_t index, void *node) {
  return locked(tree, index, 0, [&](forest &trees) -> int { return trees.erase(index, node); });
}

int wavl_delete(wavl_tree *tree, void *node) {
  return locked(tree, 0, 0, [&](forest &trees) {
    int erased = 0;
    for (std::uint32_t i = 0; i < trees.indices.size(); ++i) erased |= trees.erase(i, node);
    return erased;
  });
}

void *wavl_search(wavl_tree *tree, const void *key_node, std::uint32_t index) {
  return locked<void *>(tree, index, nullptr, [&](forest &trees) {
    return node_at(trees.indices[index], trees.indices[index].find(key_node));
  });
}

void *wavl_get_first(wavl_tree *tree, std::uint32_t index) {
  return locked<void *>(tree, index, nullptr, [&](forest &trees) {
    return node_at(trees.indices[index], trees.indices[index].begin());
  });
}

// By key, so that a walk goes on from a node that was taken out meanwhile.
void *wavl_get_next(wavl_tree *tree, const void *node, std::uint32_t index) {
  return locked<void *>(tree, index, nullptr, [&](forest &trees) {
    return node_at(trees.indices[index], trees.indices[index].upper_bound(node));
  });
}

std::uint32_t wavl_walk(wavl_tree *tree, std::uint32_t index, wavl_callback callback,
                        void *context) {
  std::uint32_t visited = 0;
  for (void *node = wavl_get_first(tree, index); node != nullptr;
       node = wavl_get_next(tree, node, index)) {
    ++visited;
    if (callback(node, context) != 0) break;
  }
  return visited;
}
