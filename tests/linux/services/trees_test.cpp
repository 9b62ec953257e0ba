#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "wavl.h"

namespace {

// The links stand behind other members, as they may.
struct item {
  uint64_t payload = 0;
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

item make(uint32_t first, uint32_t second) {
  item made;
  made.first_key = first;
  made.second_key = second;
  return made;
}

class trees : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(wavl_init(&tree, 2, offsetof(item, links), by_first, by_second), 0u);
  }
  std::vector<uint32_t> keys(uint32_t index) {
    std::vector<uint32_t> found;
    wavl_walk(
        &tree, index,
        [](void *node, void *context) {
          static_cast<std::vector<uint32_t> *>(context)->push_back(
              static_cast<item *>(node)->first_key);
          return 0;
        },
        &found);
    return found;
  }
  // Out of both indices where it is in them, else into them; `in` has the keys that are.
  void move(item &one, std::set<uint32_t> &in) {
    if (in.erase(one.first_key) == 1) {
      ASSERT_TRUE(wavl_delete(&tree, &one));
      return;
    }
    ASSERT_TRUE(wavl_insert_thread(&tree, 0, &one));
    ASSERT_TRUE(wavl_insert_thread(&tree, 1, &one));
    in.insert(one.first_key);
  }
  wavl_tree tree = {};
};

}  // namespace

TEST(trees_setup, refuses_arguments_that_make_no_sense) {
  wavl_tree tree = {};
  EXPECT_EQ(wavl_init(nullptr, 1, 0, by_first), 22u);
  EXPECT_EQ(wavl_init(&tree, 0, 0, by_first), 22u);
  EXPECT_EQ(wavl_init(&tree, 5, 0, by_first, by_first, by_first, by_first, by_first), 22u);
  EXPECT_EQ(wavl_init(&tree, 1, 3, by_first), 22u);
  EXPECT_EQ(wavl_init(&tree, 2, 8, by_first, static_cast<wavl_comparator>(nullptr)), 22u);
  EXPECT_FALSE(wavl_running(&tree));
  EXPECT_FALSE(wavl_running(nullptr));
}

TEST(trees_setup, a_tree_that_does_not_run_answers_everything_with_nothing) {
  wavl_tree tree = {};
  item one = make(1, 1);
  EXPECT_FALSE(wavl_insert_thread(&tree, 0, &one));
  EXPECT_FALSE(wavl_delete_thread(&tree, 0, &one));
  EXPECT_FALSE(wavl_delete(&tree, &one));
  EXPECT_EQ(wavl_search(&tree, &one, 0), nullptr);
  EXPECT_EQ(wavl_get_first(&tree, 0), nullptr);
  EXPECT_EQ(wavl_get_next(&tree, &one, 0), nullptr);
  EXPECT_EQ(wavl_walk(
                &tree, 0, [](void *, void *) { return 0; }, nullptr),
            0u);
}

TEST_F(trees, a_running_tree_is_not_set_up_again) {
  EXPECT_TRUE(wavl_running(&tree));
  EXPECT_EQ(wavl_init(&tree, 1, 0, by_first), 16u);
}

TEST_F(trees, bad_arguments_change_nothing) {
  item one = make(1, 1);
  EXPECT_FALSE(wavl_insert_thread(&tree, 2, &one));
  EXPECT_FALSE(wavl_insert_thread(&tree, 0, nullptr));
  EXPECT_FALSE(wavl_delete_thread(&tree, 2, &one));
  EXPECT_FALSE(wavl_delete_thread(&tree, 0, nullptr));
  EXPECT_FALSE(wavl_delete(&tree, nullptr));
  EXPECT_EQ(wavl_search(&tree, nullptr, 0), nullptr);
  EXPECT_EQ(wavl_search(&tree, &one, 7), nullptr);
  EXPECT_EQ(wavl_get_first(&tree, 7), nullptr);
  EXPECT_EQ(wavl_get_next(&tree, nullptr, 0), nullptr);
  EXPECT_EQ(wavl_walk(&tree, 0, nullptr, nullptr), 0u);
}

TEST_F(trees, indices_order_the_same_nodes_differently) {
  std::vector<item> items = {make(3, 10), make(1, 30), make(2, 20)};
  for (item &i : items) {
    EXPECT_TRUE(wavl_insert_thread(&tree, 0, &i));
    EXPECT_TRUE(wavl_insert_thread(&tree, 1, &i));
  }
  EXPECT_EQ(keys(0), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(keys(1), (std::vector<uint32_t>{3, 2, 1}));
  const item key = make(0, 20);
  EXPECT_EQ(wavl_search(&tree, &key, 1), &items[2]);
  EXPECT_EQ(wavl_search(&tree, &key, 0), nullptr);
  EXPECT_TRUE(wavl_delete_thread(&tree, 1, &items[2]));
  EXPECT_EQ(keys(1), (std::vector<uint32_t>{3, 1}));
  EXPECT_EQ(keys(0), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_TRUE(wavl_delete(&tree, &items[2]));
  EXPECT_FALSE(wavl_delete(&tree, &items[2]));
  EXPECT_EQ(keys(0), (std::vector<uint32_t>{1, 3}));
}

TEST_F(trees, refuses_a_key_twice_and_a_node_twice) {
  item one = make(1, 1), same_key = make(1, 2);
  EXPECT_TRUE(wavl_insert_thread(&tree, 0, &one));
  EXPECT_FALSE(wavl_insert_thread(&tree, 0, &one));
  EXPECT_FALSE(wavl_insert_thread(&tree, 0, &same_key));
  EXPECT_EQ(wavl_search(&tree, &same_key, 0), &one);
  EXPECT_TRUE(wavl_delete(&tree, &one));
  EXPECT_TRUE(wavl_insert_thread(&tree, 0, &same_key));
}

TEST_F(trees, a_node_of_another_tree_is_neither_taken_nor_given) {
  wavl_tree other = {};
  ASSERT_EQ(wavl_init(&other, 2, offsetof(item, links), by_first, by_second), 0u);
  item one = make(1, 1);
  EXPECT_TRUE(wavl_insert_thread(&tree, 0, &one));
  EXPECT_FALSE(wavl_insert_thread(&other, 0, &one));
  EXPECT_FALSE(wavl_delete(&other, &one));
  EXPECT_EQ(keys(0), (std::vector<uint32_t>{1}));
}

TEST_F(trees, the_walk_goes_on_behind_a_node_taken_out) {
  std::vector<item> items;
  for (uint32_t k = 0; k < 10; ++k) items.push_back(make(k, k));
  for (item &i : items) ASSERT_TRUE(wavl_insert_thread(&tree, 0, &i));
  ASSERT_TRUE(wavl_delete(&tree, &items[4]));
  EXPECT_EQ(wavl_get_next(&tree, &items[4], 0), &items[5]);
  ASSERT_TRUE(wavl_delete(&tree, &items[5]));
  EXPECT_EQ(wavl_get_next(&tree, &items[4], 0), &items[6]);
  ASSERT_TRUE(wavl_delete(&tree, &items[9]));
  EXPECT_EQ(wavl_get_next(&tree, &items[9], 0), nullptr);
}

TEST_F(trees, the_walk_ends_when_the_callback_says_so_and_may_take_nodes_out) {
  std::vector<item> items;
  for (uint32_t k = 0; k < 10; ++k) items.push_back(make(k, k));
  for (item &i : items) ASSERT_TRUE(wavl_insert_thread(&tree, 0, &i));
  const auto stop_at_third = [](void *node, void *) {
    return static_cast<item *>(node)->first_key == 2 ? 1 : 0;
  };
  EXPECT_EQ(wavl_walk(&tree, 0, stop_at_third, nullptr), 3u);
  const auto take_out = [](void *node, void *context) {
    return wavl_delete(static_cast<wavl_tree *>(context), node) ? 0 : 1;
  };
  EXPECT_EQ(wavl_walk(&tree, 0, take_out, &tree), 10u);
  EXPECT_EQ(wavl_get_first(&tree, 0), nullptr);
}

TEST_F(trees, stay_in_order_through_random_changes) {
  std::vector<item> items;
  for (uint32_t k = 0; k < 500; ++k) items.push_back(make(k, 1000 - k));
  std::vector<bool> in(items.size(), false);
  std::mt19937 random(7);
  for (int step = 0; step < 20000; ++step) {
    const size_t i = random() % items.size();
    if (in[i]) {
      ASSERT_TRUE(wavl_delete(&tree, &items[i]));
    } else {
      ASSERT_TRUE(wavl_insert_thread(&tree, 0, &items[i]));
      ASSERT_TRUE(wavl_insert_thread(&tree, 1, &items[i]));
    }
    in[i] = !in[i];
  }
  std::vector<uint32_t> expected;
  for (uint32_t k = 0; k < items.size(); ++k) {
    if (in[k]) expected.push_back(k);
  }
  EXPECT_EQ(keys(0), expected);
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(keys(1), expected);
}

// Steps of several walks in turn, from nodes that are in and nodes that are out, between changes.
TEST_F(trees, each_step_leads_to_the_key_behind_whatever_happened_since_the_last) {
  std::vector<item> items;
  for (uint32_t k = 0; k < 100; ++k) items.push_back(make(k, 100 - k));
  std::set<uint32_t> in;
  const auto first_key = [](void *node) {
    return node == nullptr ? -1 : static_cast<int>(static_cast<item *>(node)->first_key);
  };
  const auto key_behind = [&](uint32_t key) {
    const auto next = in.upper_bound(key);
    return next == in.end() ? -1 : static_cast<int>(*next);
  };
  const auto key_before = [&](uint32_t key) {
    const auto at = in.lower_bound(key);
    return at == in.begin() ? -1 : static_cast<int>(*std::prev(at));
  };
  std::mt19937 random(11);
  void *walker = nullptr;
  for (int step = 0; step < 20000; ++step) {
    const uint32_t k = random() % items.size();
    if (random() % 4 == 0) {
      ASSERT_NO_FATAL_FAILURE(move(items[k], in));
    }
    if (walker == nullptr) {
      walker = wavl_get_first(&tree, 0);
      ASSERT_EQ(first_key(walker), in.empty() ? -1 : static_cast<int>(*in.begin()));
    } else {
      const uint32_t from = static_cast<item *>(walker)->first_key;
      walker = wavl_get_next(&tree, walker, 0);
      ASSERT_EQ(first_key(walker), key_behind(from));
    }
    if (random() % 2 == 0) {
      ASSERT_EQ(first_key(wavl_get_next(&tree, &items[k], 0)), key_behind(k));
      ASSERT_EQ(first_key(wavl_get_next(&tree, &items[k], 1)), key_before(k));
    }
  }
}

// The same key twice, the next ones, and any, in both indices in turn, between changes.
TEST_F(trees, each_search_finds_what_is_there_wherever_the_last_one_ended) {
  std::vector<item> items;
  for (uint32_t k = 0; k < 60; ++k) items.push_back(make(k, 60 - k));
  std::set<uint32_t> in;
  std::mt19937 random(5);
  uint32_t k = 0;
  for (int step = 0; step < 20000; ++step) {
    if (random() % 8 == 0) {
      ASSERT_NO_FATAL_FAILURE(move(items[k], in));
    }
    const uint32_t next = random() % 4;
    k = next == 0 ? random() % items.size() : (k + next - 1) % items.size();
    const item key = make(k, 60 - k);
    ASSERT_EQ(wavl_search(&tree, &key, random() % 2), in.contains(k) ? &items[k] : nullptr);
  }
}

// A thread's latest step and search are of the tree, not of its record's address.
TEST(trees_setup, a_tree_where_another_was_is_another) {
  item one = make(1, 1), two = make(2, 2);
  for (const bool is_second : {false, true}) {
    wavl_tree tree = {};
    ASSERT_EQ(wavl_init(&tree, 1, offsetof(item, links), by_first), 0u);
    EXPECT_EQ(wavl_search(&tree, &two, 0), nullptr);
    ASSERT_TRUE(wavl_insert_thread(&tree, 0, &one));
    if (is_second) {
      EXPECT_EQ(wavl_get_next(&tree, &one, 0), nullptr);
      break;
    }
    ASSERT_TRUE(wavl_insert_thread(&tree, 0, &two));
    EXPECT_EQ(wavl_search(&tree, &two, 0), &two);
    EXPECT_EQ(wavl_get_first(&tree, 0), &one);
    one = make(1, 1);
    two = make(2, 2);
  }
}

// A key node is not in the tree, and stands where its key would.
TEST_F(trees, a_step_from_a_key_node_leads_to_the_key_behind) {
  std::vector<item> items;
  for (uint32_t k = 0; k < 40; k += 2) items.push_back(make(k, k));
  for (item &i : items) ASSERT_TRUE(wavl_insert_thread(&tree, 0, &i));
  const item odd = make(5, 0), even = make(6, 0), last = make(38, 0);
  EXPECT_EQ(wavl_get_next(&tree, &odd, 0), &items[3]);
  EXPECT_EQ(wavl_get_next(&tree, &even, 0), &items[4]);
  EXPECT_EQ(wavl_get_next(&tree, &last, 0), nullptr);
}

// Even keys stay, odd ones come and go; a walker sees every even key, in order.
TEST_F(trees, walkers_and_changes_at_the_same_time) {
  constexpr uint32_t count = 200;
  std::vector<item> items;
  for (uint32_t k = 0; k < count; ++k) items.push_back(make(k, k));
  for (uint32_t k = 0; k < count; k += 2) {
    ASSERT_TRUE(wavl_insert_thread(&tree, 0, &items[k]));
    ASSERT_TRUE(wavl_insert_thread(&tree, 1, &items[k]));
  }
  std::atomic<bool> done = false;
  std::atomic<uint64_t> walks = 0;
  std::vector<std::thread> threads;
  for (uint32_t part = 0; part < 2; ++part) {
    threads.emplace_back([&, part] {
      std::mt19937 random(part);
      for (int step = 0; step < 5000; ++step) {
        const uint32_t k = (random() % (count / 4)) * 4 + 2 * part + 1;
        if (!wavl_delete(&tree, &items[k])) {
          EXPECT_TRUE(wavl_insert_thread(&tree, 0, &items[k]));
          EXPECT_TRUE(wavl_insert_thread(&tree, 1, &items[k]));
        }
      }
    });
    threads.emplace_back([&, part] {
      while (!done) {
        uint32_t even = 0;
        const item *before = nullptr;
        for (void *node = wavl_get_first(&tree, part); node != nullptr;
             node = wavl_get_next(&tree, node, part)) {
          const item *at = static_cast<const item *>(node);
          if (before != nullptr) {
            EXPECT_LT(before->first_key, at->first_key);
          }
          before = at;
          even += at->first_key % 2 == 0 ? 1 : 0;
          EXPECT_EQ(wavl_search(&tree, &items[at->first_key & ~1u], part),
                    &items[at->first_key & ~1u]);
        }
        EXPECT_EQ(even, count / 2);
        ++walks;
      }
    });
  }
  threads[0].join();
  threads[2].join();
  done = true;
  threads[1].join();
  threads[3].join();
  EXPECT_GT(walks.load(), 0u);
}
