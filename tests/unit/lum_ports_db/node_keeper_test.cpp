// The memory of removed nodes, and what the keeper itself needs of it.
#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <new>
#include <thread>

#include "ports_db_fixture.h"
#include "refused_thread_ends.h"

namespace {

// The keeper takes its slots with this form of new; nothing else of the library does.
std::atomic<unsigned> slots_taken{0};
std::atomic<bool> no_memory{false};

}  // namespace

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  ++slots_taken;
  if (no_memory.load()) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

namespace node_keeper_test {

using namespace ports_db_fixture;

namespace {

// A reader section on a thread of its own.
class section_elsewhere {
 public:
  section_elsewhere() {
    thread_ = std::thread([this] {
      {
        lum::ports_reader reader;
        opened_.set_value();
        close_.get_future().wait();
      }
      closed_.set_value();
      end_.get_future().wait();
    });
    opened_.get_future().wait();
  }
  ~section_elsewhere() {
    end_.set_value();
    thread_.join();
  }
  // To be called once; the thread lives on.
  void close() {
    close_.set_value();
    closed_.get_future().wait();
  }

 private:
  std::promise<void> opened_, close_, closed_, end_;
  std::thread thread_;
};

class node_keeper : public ports_db {
 protected:
  void SetUp() override {
    ports_db::SetUp();
    ASSERT_EQ(add(rsip), 0u);
  }
  static uint64_t freed() { return lum::node_keeper_counts().freed; }
};

TEST_F(node_keeper, section_opened_after_the_removal_does_not_hold_the_node) {
  section_elsewhere before;
  ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_EQ(freed(), 0u);
  section_elsewhere after;
  before.close();
  EXPECT_EQ(freed(), 1u);
  after.close();
}

TEST_F(node_keeper, section_that_found_no_memory_for_its_slot_holds_the_node) {
#ifdef LUM_SANITIZERS_NEW
  GTEST_SKIP() << "memory does not run out here";
#endif
  // This thread's own slot is there.
  uint32_t handle = 0;
  ASSERT_EQ(lum_ports_db_rsip2port_handle(rsip, &handle), 0u);
  no_memory = true;
  section_elsewhere section;
  no_memory = false;
  ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_EQ(freed(), 0u);
  section.close();
  EXPECT_EQ(freed(), 1u);
}

// What is told of a thread's end is told in turn; the keeper is told before this.
TEST_F(node_keeper, section_at_a_threads_very_end_shares_no_slot) {
  static section_elsewhere *other = nullptr;
  pthread_key_t key = 0;
  ASSERT_EQ(pthread_key_create(&key,
                               [](void *) {
                                 other = new section_elsewhere;
                                 lum::ports_reader late;
                               }),
            0);
  std::thread([&] {
    lum::ports_reader first;
    ASSERT_EQ(pthread_setspecific(key, &key), 0);
  }).join();
  ASSERT_NE(other, nullptr);
  ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
  EXPECT_EQ(freed(), 0u) << "the late section has ended the other one";
  other->close();
  EXPECT_EQ(freed(), 1u);
  delete other;
  pthread_key_delete(key);
}

TEST_F(node_keeper, thread_whose_end_cannot_be_told_gives_its_slot_back_with_each_section) {
#ifdef LUM_SANITIZERS_NEW
  GTEST_SKIP() << "the allocations are not this test's to refuse or count";
#endif
  slots_taken = 0;
  for (int i = 0; i < 3; ++i) {
    std::thread([] {
      refuses_thread_ends = true;
      lum::ports_reader reader;
    }).join();
  }
  EXPECT_EQ(slots_taken.load(), 1u);
  std::thread([&] {
    refuses_thread_ends = true;
    { lum::ports_reader before; }
    lum::ports_reader reader;
    ASSERT_EQ(lum_ports_db_remove_entry(rsip), 0u);
    EXPECT_EQ(freed(), 0u);
  }).join();
  EXPECT_EQ(freed(), 1u);
}

#ifndef NDEBUG
TEST_F(node_keeper, look_up_of_the_librarys_own_outside_a_section_ends_a_debug_build) {
  EXPECT_DEATH(lum::find_port(rsip), "in_reader_section");
  EXPECT_DEATH(lum::find_port_by_handle(1), "in_reader_section");
  EXPECT_DEATH(lum::walk_to(0, 3, 0, 7), "in_reader_section");
}
#endif

TEST_F(node_keeper, threads_that_come_one_after_the_other_share_a_slot) {
#ifdef LUM_SANITIZERS_NEW
  GTEST_SKIP() << "the allocations are not this test's to count";
#endif
  slots_taken = 0;
  for (int i = 0; i < 100; ++i) std::thread([] { lum::ports_reader reader; }).join();
  EXPECT_EQ(slots_taken.load(), 1u);
}

}  // namespace

}  // namespace node_keeper_test
