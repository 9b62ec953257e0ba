// Trees: wavl.h.
#include <cstddef>
#include <deque>
#include <thread>

#include "check.h"
#include "wavl.h"

namespace conformance {
namespace {

struct item {
  uint64_t payload = 0;  // the links stand behind other members, as they may
  wavl_link links[2] = {};
  uint32_t first_key = 0;
  uint32_t second_key = 0;
};

int compare(uint32_t a, uint32_t b) { return a < b ? 0 : a == b ? 1 : 2; }
int by_first(const void *a, const void *b) {
  return compare(static_cast<const item *>(a)->first_key, static_cast<const item *>(b)->first_key);
}
int by_second(const void *a, const void *b) {
  return compare(static_cast<const item *>(a)->second_key,
                 static_cast<const item *>(b)->second_key);
}

item with_keys(uint32_t first, uint32_t second) {
  item made;
  made.first_key = first;
  made.second_key = second;
  return made;
}

wavl_tree *start_tree() {
  start_platform();
  static wavl_tree tree = {};
  const cerrno rc = wavl_init(&tree, 2, offsetof(item, links), by_first, by_second);
  require(rc == 0, "wavl_init answers %u", rc);
  require(wavl_running(&tree) != 0, "the tree does not run");
  return &tree;
}

void insert(wavl_tree *tree, item &node) {
  require(wavl_insert_thread(tree, 0, &node) != 0, "the key %u is not taken", node.first_key);
  require(wavl_insert_thread(tree, 1, &node) != 0, "the second index does not take the node");
}

// Keys 1 to `count` in the first index and the other way round in the second.
std::deque<item> fill(wavl_tree *tree, uint32_t count) {
  std::deque<item> items;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t key = i * 7 % count + 1;  // count is no multiple of 7
    items.push_back(with_keys(key, count - key));
  }
  for (item &one : items) insert(tree, one);
  return items;
}

void nodes_are_found_by_every_index() {
  wavl_tree *tree = start_tree();
  item node = with_keys(3, 30);
  insert(tree, node);
  const item first = with_keys(3, 0), second = with_keys(0, 30), neither = with_keys(30, 3);
  require(wavl_search(tree, &first, 0) == &node, "it is not found by its first key");
  require(wavl_search(tree, &second, 1) == &node, "it is not found by its second key");
  require(wavl_search(tree, &neither, 0) == nullptr, "another key finds it in the first index");
  require(wavl_search(tree, &neither, 1) == nullptr, "another key finds it in the second index");
}

void a_key_is_taken_once() {
  wavl_tree *tree = start_tree();
  item node = with_keys(3, 30), same = with_keys(3, 31);
  insert(tree, node);
  require(wavl_insert_thread(tree, 0, &node) == 0, "a node is taken twice");
  require(wavl_insert_thread(tree, 0, &same) == 0, "a key is taken twice");
  require(wavl_search(tree, &same, 0) == &node, "the first node of the key is gone");
  require(wavl_delete_thread(tree, 0, &same) == 0, "a node that was refused can be taken out");
  require(wavl_search(tree, &same, 0) == &node, "another node of the key was taken out");
}

void walks_go_in_order() {
  wavl_tree *tree = start_tree();
  const std::deque<item> items = fill(tree, 100);
  for (const uint32_t index : {0u, 1u}) {
    uint32_t visited = 0;
    const item *before = nullptr;
    for (void *node = wavl_get_first(tree, index); node != nullptr;
         node = wavl_get_next(tree, node, index)) {
      const auto *here = static_cast<const item *>(node);
      const auto order = index == 0 ? by_first : by_second;
      require(before == nullptr || order(before, here) == 0, "node %u of index %u is out of order",
              visited, index);
      before = here;
      ++visited;
    }
    require(visited == 100, "%u of 100 nodes are visited in index %u", visited, index);
  }
}

int count_to_ten(void *, void *context) { return ++*static_cast<uint32_t *>(context) == 10; }

void a_walk_ends_where_it_is_told() {
  wavl_tree *tree = start_tree();
  const std::deque<item> items = fill(tree, 100);
  uint32_t called = 0;
  const uint32_t visited = wavl_walk(tree, 0, count_to_ten, &called);
  require(called == 10, "the walk's function was called %u times after it said 10 are enough",
          called);
  require(visited == 10, "a walk over 10 nodes says %u", visited);
}

void a_walk_goes_on_behind_a_removed_node() {
  wavl_tree *tree = start_tree();
  std::deque<item> items = fill(tree, 10);
  const item key = with_keys(5, 0), next = with_keys(6, 0), last = with_keys(10, 0);
  auto *removed = static_cast<item *>(wavl_search(tree, &key, 0));
  require(removed != nullptr && wavl_delete(tree, removed) != 0, "a node cannot be taken out");
  require(wavl_get_next(tree, removed, 0) == wavl_search(tree, &next, 0),
          "the node that follows a removed one is not its successor");
  auto *end = static_cast<item *>(wavl_search(tree, &last, 0));
  require(wavl_delete(tree, end) != 0 && wavl_get_next(tree, end, 0) == nullptr,
          "a node follows the removed last one");
}

void a_node_is_taken_out_where_it_is_asked_for() {
  wavl_tree *tree = start_tree();
  item node = with_keys(3, 30);
  insert(tree, node);
  require(wavl_delete_thread(tree, 0, &node) != 0, "it is not taken out of the first index");
  require(wavl_delete_thread(tree, 0, &node) == 0, "it is taken out twice");
  require(wavl_search(tree, &node, 0) == nullptr, "the first index still finds it");
  require(wavl_search(tree, &node, 1) == &node, "the second index does not find it any more");
  require(wavl_delete(tree, &node) != 0, "it is not taken out of the index it is still in");
  require(wavl_search(tree, &node, 1) == nullptr, "the second index still finds it");
  require(wavl_delete(tree, &node) == 0, "a node that is in no index is taken out");
  insert(tree, node);
}

void a_tree_that_does_not_run_finds_nothing() {
  start_platform();
  wavl_tree tree = {};
  item node = with_keys(1, 1);
  require(wavl_running(&tree) == 0, "a zero-filled tree runs");
  require(wavl_insert_thread(&tree, 0, &node) == 0, "it takes a node");
  require(wavl_search(&tree, &node, 0) == nullptr, "it finds a node");
  require(wavl_get_first(&tree, 0) == nullptr, "it has a first node");
  require(wavl_delete(&tree, &node) == 0, "a node is taken out of it");
}

// Another thread looks a node up while the walk's function runs.
struct bystander {
  wavl_tree *tree;
  const item *key;
  std::atomic<bool> found{false};
  bool in_time = false;  // it was found before the function returned
  std::thread thread;
};

int look_beside(void *, void *context) {
  auto &other = *static_cast<bystander *>(context);
  other.thread =
      std::thread([&other] { other.found = wavl_search(other.tree, other.key, 0) == other.key; });
  other.in_time = comes([&other] { return other.found.load(); });
  return 1;
}

void a_walk_holds_no_lock() {
  wavl_tree *tree = start_tree();
  const std::deque<item> items = fill(tree, 10);
  bystander other = {tree, &items[0], {}, false, {}};
  wavl_walk(tree, 0, look_beside, &other);
  other.thread.join();
  require(other.in_time, "nothing is found while a walk's function runs");
}

void threads_use_a_tree_at_once() {
  wavl_tree *tree = start_tree();
  std::atomic<uint32_t> wrong{0}, running{4};
  std::vector<std::thread> threads;
  std::deque<item> items;
  for (uint32_t key = 0; key < 4 * 50; ++key) items.push_back(with_keys(key, key));
  for (uint32_t t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (uint32_t round = 0; round < 2000; ++round) {
        item &mine = items[t * 50 + round % 50];
        wrong += wavl_insert_thread(tree, 0, &mine) == 0;
        wrong += wavl_insert_thread(tree, 1, &mine) == 0;
        wrong += wavl_search(tree, &mine, round % 2) != &mine;
        wrong += wavl_delete(tree, &mine) == 0;
      }
      --running;
    });
  }
  while (running != 0) {
    uint32_t never = 100;
    wavl_walk(tree, 0, count_to_ten, &never);
  }
  for (std::thread &one : threads) one.join();
  require(wrong == 0, "%u of 32000 calls by four threads on nodes of their own went wrong",
          wrong.load());
}

}  // namespace

std::vector<check> tree_checks() {
  return {{"trees.find_by_every_index", nodes_are_found_by_every_index},
          {"trees.take_a_key_once", a_key_is_taken_once},
          {"trees.walk_in_order", walks_go_in_order},
          {"trees.end_a_walk_where_told", a_walk_ends_where_it_is_told},
          {"trees.go_on_behind_a_removed_node", a_walk_goes_on_behind_a_removed_node},
          {"trees.take_a_node_out_where_asked", a_node_is_taken_out_where_it_is_asked_for},
          {"trees.find_nothing_unless_they_run", a_tree_that_does_not_run_finds_nothing},
          {"trees.hold_no_lock_over_a_walks_function", a_walk_holds_no_lock},
          {"trees.serve_several_threads", threads_use_a_tree_at_once}};
}

}  // namespace conformance
