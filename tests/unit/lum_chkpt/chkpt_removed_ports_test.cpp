// The records of ports that go while they are being saved, and of those that come back at once.
#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "asleep.h"
#include "chkpt_helpers.h"
#include "controllers.h"
#include "lum_ports_db/node_keeper.h"

namespace chkpt_removed_ports_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t other_rsip = 0x30109;

// Stops whoever makes a trace until it is let go.
class held_trace {
 public:
  explicit held_trace(uint32_t point) {
    at_trace = [this, point](const trace_line &line) {
      if (line.point != point || held_.exchange(true)) return;
      here_ = true;
      while (!go_on_) std::this_thread::yield();
    };
  }
  ~held_trace() {
    let_go();
    at_trace = nullptr;
  }
  void wait_for_it() const {
    while (!here_) std::this_thread::yield();
  }
  void let_go() { go_on_ = true; }

 private:
  std::atomic<bool> held_{false};
  std::atomic<bool> here_{false};
  std::atomic<bool> go_on_{false};
};

constexpr uint32_t saved = 237;
constexpr uint32_t node_removed = 64;

class removed_ports : public chkpt {
 protected:
  void SetUp() override {
    chkpt::SetUp();
    add_port_with_handles(9, 0x803, 0x804);
    ASSERT_EQ(lum_chkpt_save(&port()), 0u);
    ASSERT_EQ(lum_chkpt_save(&data_at(other_rsip)), 0u);
    clear_record();
  }
};

// The save of another port is at the disk; this port's save waits behind it.
TEST_F(removed_ports, save_that_waits_while_its_port_is_deleted_makes_no_call_and_no_trace) {
  lum_port_data &going = port();
  held_trace at_the_disk(saved);
  sleeper first([] { EXPECT_EQ(lum_chkpt_save(&data_at(other_rsip)), 0u); });
  at_the_disk.wait_for_it();
  sleeper waiting([&] { EXPECT_EQ(lum_chkpt_save(&going), 0u); });
  waiting.wait_asleep();
  EXPECT_FALSE(waiting.ended());
  lum_controller_delete_done(delete_request({handle_0, handle_1}));
  EXPECT_FALSE(checkpoints.has(rsip));
  clear_record();
  at_the_disk.let_go();
  first.join();
  waiting.join();
  EXPECT_FALSE(checkpoints.has(rsip)) << "the record has come back";
  EXPECT_THAT(calls(record_calls), IsEmpty());
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(removed_ports, save_of_a_port_that_has_gone_already_makes_no_call) {
  lum_port_data &going = port();
  const lum::ports_reader reader;
  lum_controller_delete_done(delete_request({handle_0, handle_1}));
  clear_record();
  EXPECT_EQ(lum_chkpt_save(&going), 0u);
  EXPECT_THAT(calls(record_calls), IsEmpty());
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(removed_ports, block_that_never_was_in_the_database_is_created_and_saved) {
  const auto block = std::make_unique<lum_port_data>();
  block->slot = 5;
  block->port = 1;
  EXPECT_EQ(lum_chkpt_save(block.get()), 0u);
  EXPECT_TRUE(checkpoints.has(0x50001));
  EXPECT_THAT(calls(record_calls),
              ElementsAre(testing::StartsWith("chkpt_mapkey"), testing::StartsWith("chkpt_create"),
                          testing::StartsWith("chkpt_save")));
}

// ---- Created again before the deletion has ended ----

TEST_F(removed_ports, port_created_again_before_its_record_is_gone_starts_without_old_settings) {
  port().port_cfg[0].threshold = 77;
  ASSERT_EQ(lum_chkpt_save(&port()), 0u);
  held_trace node_is_gone(node_removed);
  std::thread completion([] { lum_controller_delete_done(delete_request({handle_0, handle_1})); });
  node_is_gone.wait_for_it();
  const auto props = props_of({rsip});
  sleeper creation([&] { EXPECT_EQ(lum_create_ports(1, props.data()), 0u); });
  creation.wait_asleep();
  EXPECT_FALSE(creation.ended());
  node_is_gone.let_go();
  completion.join();
  creation.join();
  EXPECT_EQ(port().port_cfg[0].threshold, 0u);
  ASSERT_TRUE(checkpoints.has(rsip)) << "the late deletion took the new port's record";
  EXPECT_NE(mirror().chkpt_id, 0u);
  EXPECT_EQ(mirror().key, rsip);
  EXPECT_EQ(mirror().created, 1u);
  clear_record();
  port().port_cfg[0].threshold = 5;
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  EXPECT_EQ(checkpoints.record(rsip).port_cfg[0].threshold, 5u);
}

TEST_F(removed_ports, record_of_a_port_added_again_by_hand_waits_for_the_deletion_too) {
  held_trace node_is_gone(node_removed);
  std::thread completion([] { lum_controller_delete_done(delete_request({handle_0, handle_1})); });
  node_is_gone.wait_for_it();
  add_port(rsip);
  sleeper creation([&] { EXPECT_EQ(lum_chkpt_create(&port()), 0u); });
  creation.wait_asleep();
  EXPECT_FALSE(creation.ended());
  sleeper save([&] { EXPECT_EQ(lum_chkpt_save(&port()), 0u); });
  save.wait_asleep();
  EXPECT_EQ(lum_chkpt_save(&data_at(other_rsip)), 0u) << "held up by the save of another port";
  node_is_gone.let_go();
  completion.join();
  creation.join();
  save.join();
  EXPECT_TRUE(checkpoints.has(rsip));
}

TEST_F(removed_ports, deletion_of_one_port_does_not_hold_up_the_record_of_another) {
  held_trace node_is_gone(node_removed);
  std::thread completion([] { lum_controller_delete_done(delete_request({handle_0, handle_1})); });
  node_is_gone.wait_for_it();
  EXPECT_EQ(lum_chkpt_save(&data_at(other_rsip)), 0u);
  node_is_gone.let_go();
  completion.join();
  EXPECT_FALSE(checkpoints.has(rsip));
  EXPECT_TRUE(checkpoints.has(other_rsip));
}

// A storage, or a trace, that comes back to the record on the thread that holds it.
TEST_F(removed_ports, record_is_not_held_against_its_own_thread) {
  cerrno again = 99;
  at_trace = [&](const trace_line &line) {
    if (line.point == saved && again == 99) {
      again = 98;
      again = lum_chkpt_create(&port());
    }
  };
  EXPECT_EQ(lum_chkpt_save(&port()), 0u);
  at_trace = nullptr;
  EXPECT_EQ(again, 0u);
}

}  // namespace

}  // namespace chkpt_removed_ports_test
