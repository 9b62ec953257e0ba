// Who frees what, path by path. What is left on purpose is named by its path and released by the
// test, so that a leak checker finds nothing.
#include <gmock/gmock.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "blocks.h"
#include "controllers.h"

namespace ownership_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t create_size = sizeof(lum_controller_create_request);
constexpr std::size_t entry_size = sizeof(lum_controller_create_entry);
constexpr std::size_t update_size = sizeof(lum_controller_update_request);
constexpr std::size_t delete_size = sizeof(lum_controller_delete_request);
constexpr std::size_t cell_size = sizeof(uint32_t);

constexpr uint32_t both[] = {7, 8};

// The two ports' controllers exist; every batch of the test is one more.
class ownership : public created_ports {
 protected:
  void TearDown() override { im.batches.clear(); }

  static cerrno create() { return lum_ots_controllers_create(0, 3, 0, 2, both); }
  static cerrno update() { return lum_ots_controllers_update(0, 3, 0, 7, 1); }
  static cerrno remove() { return lum_ots_controllers_delete(0, 3, 0, 2, both); }
  static batch &sent() { return im.batches.back(); }
  static void refuse() {
    script.fail("im_req_by_name", 1, 31);
    script.fail("im_update_req_by_ifhandle", 1, 31);
  }
  static void take_callbacks_away() {
    lum_get_ctx()->platform_cbs.im_req_by_name = nullptr;
    lum_get_ctx()->platform_cbs.im_update_req_by_ifhandle = nullptr;
  }
  static batch_reply failed_first(std::optional<std::string> name) {
    batch_reply reply = im.success(sent());
    reply.elements[0].result = 5;
    reply.elements[0].name = std::move(name);
    return reply;
  }
  // Runs an operation once for each of its allocations, with that one failing.
  template <typename Operation>
  static void expect_nothing_left_without_memory(Operation operation, unsigned allocations) {
    for (unsigned nth = 1; nth <= allocations; ++nth) {
      const block_watch blocks;
      script.forget();
      script.fail("calloc", nth, 1);
      EXPECT_EQ(operation(), 12u) << nth;
      EXPECT_THAT(blocks.live(), IsEmpty()) << nth;
    }
  }
};

// ---- Create ----

TEST_F(ownership, create_is_freed_by_its_completion) {
  const block_watch blocks;
  EXPECT_EQ(create(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  im.answer(sent());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, create_with_benign_elements_is_freed_by_its_completion) {
  const block_watch blocks;
  EXPECT_EQ(create(), 0u);
  batch_reply reply = im.success(sent());
  reply.elements[2].result = 0x809A4200;
  im.answer(sent(), reply);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, create_answered_with_no_element_is_freed) {
  const block_watch blocks;
  EXPECT_EQ(create(), 0u);
  im.answer(sent(), batch_reply{});
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, create_without_memory_leaves_nothing) {
  expect_nothing_left_without_memory(create, 4);
}

TEST_F(ownership, refused_create_is_left_with_its_entries) {
  block_watch blocks;
  refuse();
  EXPECT_EQ(create(), 31u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  blocks.release();
}

// The payload's allocation fails: the batch was refused before it was sent.
TEST_F(ownership, create_whose_payload_found_no_memory_is_left_with_its_entries) {
  block_watch blocks;
  auto *request = create_request({controller(first, 0)});
  const char *names[] = {"Ots0_3_0_7_0"};
  const uint16_t types[] = {188};
  script.fail("calloc", 1, 1);
  EXPECT_EQ(lum_controllers_create(request, names, types), 12u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, entry_size));
  blocks.release();
}

TEST_F(ownership, create_with_nothing_to_send_is_left_with_its_entries) {
  block_watch blocks;
  const uint32_t unknown[] = {44};
  EXPECT_EQ(lum_ots_controllers_create(0, 3, 0, 1, unknown), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 2 * entry_size));
  blocks.release();
}

TEST_F(ownership, create_of_no_port_is_left_with_its_empty_array) {
  block_watch blocks;
  EXPECT_EQ(lum_ots_controllers_create(0, 3, 0, 0, nullptr), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 0u));
  blocks.release();
}

TEST_F(ownership, create_without_the_callback_belongs_to_nobody) {
  block_watch blocks;
  take_callbacks_away();
  EXPECT_EQ(create(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  blocks.release();
}

TEST_F(ownership, create_ended_by_a_failed_element_with_a_proper_name_is_left) {
  block_watch blocks;
  EXPECT_EQ(create(), 0u);
  im.answer(sent(), failed_first("Ots0_3_0_7_0"));
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  blocks.release();
}

TEST_F(ownership, create_ended_by_a_creation_that_it_triggers_is_left_and_the_other_lives_on) {
  add_port(0);
  block_watch blocks;
  EXPECT_EQ(create(), 0u);
  im.answer(sent(), failed_first("nonsense"));
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size, create_size, 8 * entry_size));
  im.answer(sent());
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  blocks.release();
}

TEST_F(ownership, create_ended_by_a_creation_with_nothing_to_send_leaves_both) {
  block_watch blocks;
  EXPECT_EQ(create(), 0u);
  im.answer(sent(), failed_first("nonsense"));
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size, create_size, 8 * entry_size));
  blocks.release();
}

TEST_F(ownership, create_ended_by_a_creation_that_is_refused_leaves_both) {
  add_port(0);
  block_watch blocks;
  EXPECT_EQ(create(), 0u);
  refuse();
  im.answer(sent(), failed_first("nonsense"));
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size, create_size, 8 * entry_size));
  blocks.release();
}

TEST_F(ownership, create_answered_without_a_reply_is_left) {
  block_watch blocks;
  EXPECT_EQ(create(), 0u);
  sent().complete(nullptr, sent().context);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  blocks.release();
}

// ---- Replay ----

TEST_F(ownership, replay_is_freed_by_its_completion) {
  const block_watch blocks;
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  im.answer(sent());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, replay_with_empty_entries_is_freed_by_its_completion) {
  lum_inc_ots_cntrs(2);
  const block_watch blocks;
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  im.answer(sent());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, replay_without_memory_leaves_nothing) {
  expect_nothing_left_without_memory(lum_replay_ots_controllers, 4);
}

TEST_F(ownership, refused_replay_is_left_with_its_entries) {
  block_watch blocks;
  refuse();
  EXPECT_EQ(lum_replay_ots_controllers(), 31u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 4 * entry_size));
  blocks.release();
}

TEST_F(ownership, replay_with_nothing_to_send_is_left_with_its_entries) {
  ASSERT_EQ(lum_ports_db_remove_entry(first), 0u);
  ASSERT_EQ(lum_ports_db_remove_entry(second), 0u);
  lum_inc_ots_cntrs(2);
  block_watch blocks;
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(create_size, 2 * entry_size));
  blocks.release();
}

// ---- Update ----

TEST_F(ownership, update_is_freed_by_its_completion) {
  const block_watch blocks;
  EXPECT_EQ(update(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(2 * sizeof(uint32_t), update_size));
  im.answer(sent());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, refused_update_leaves_nothing) {
  const block_watch blocks;
  refuse();
  EXPECT_EQ(update(), 31u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

// Handles, request and payload.
TEST_F(ownership, update_without_memory_leaves_nothing) {
  expect_nothing_left_without_memory(update, 3);
}

TEST_F(ownership, update_without_the_callback_belongs_to_nobody) {
  block_watch blocks;
  take_callbacks_away();
  EXPECT_EQ(update(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(2 * sizeof(uint32_t), update_size));
  blocks.release();
}

// ---- Delete ----

TEST_F(ownership, delete_is_freed_by_its_completion_with_the_nodes_and_their_cells) {
  const block_watch blocks;
  EXPECT_EQ(remove(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(4 * sizeof(uint32_t), delete_size));
  im.answer(sent());
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, refused_delete_leaves_nothing) {
  const block_watch blocks;
  refuse();
  EXPECT_EQ(remove(), 31u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(ownership, delete_of_an_unknown_port_leaves_nothing) {
  const block_watch blocks;
  const uint32_t unknown[] = {44};
  EXPECT_EQ(lum_ots_controllers_delete(0, 3, 0, 1, unknown), 22u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

// Types, handles, request, names, elements and the four names.
TEST_F(ownership, delete_without_memory_leaves_nothing) {
  expect_nothing_left_without_memory(remove, 9);
}

TEST_F(ownership, delete_without_the_callback_belongs_to_nobody) {
  block_watch blocks;
  take_callbacks_away();
  EXPECT_EQ(remove(), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(4 * sizeof(uint32_t), delete_size));
  blocks.release();
}

// ---- Answers before the send has returned ----

TEST_F(ownership, answers_that_come_before_the_send_has_returned_free_each_request_once) {
  const block_watch blocks;
  im.answers_at_once = true;
  EXPECT_EQ(create(), 0u);
  EXPECT_EQ(update(), 0u);
  EXPECT_EQ(lum_replay_ots_controllers(), 0u);
  EXPECT_EQ(remove(), 0u);
  EXPECT_THAT(blocks.live(), IsEmpty());
  EXPECT_EQ(lum_ports_db_find_entry(first), nullptr);
}

TEST_F(ownership, answers_that_come_early_are_traced_before_the_success) {
  im.answers_at_once = true;
  EXPECT_EQ(create(), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({info("Controller create done cb for 4 ports, freeing allocated "
                                   "memory"),
                              info("controller_create,send im_req_by_name_success,count,4"),
                              info("controller op CREATE  batch size 4type 188 ifname Ots0_3_0_7_0 "
                                   "is initiated\n")}));
  clear_record();
  EXPECT_EQ(remove(), 0u);
  EXPECT_THAT(traces(),
              lines_in_order({info("Controller delete done cb for 4 ports, Ots0_3_0_7_0 freed "
                                   "memory"),
                              info("controller_delete optics_im_req_by_name bulk count:4 ifname "
                                   ":[Ots0_3_0_7_0]")}));
}

// ---- Slots, ports and their cells ----

TEST_F(ownership, whole_life_of_a_slot_leaves_nothing) {
  const block_watch blocks;
  create_ports(5, 1, {1, 2, 3});
  const uint32_t ports[] = {1, 2, 3};
  EXPECT_EQ(lum_delete_ports(0, 5, 1, 3, ports), 0u);
  im.answer(sent());
  EXPECT_THAT(blocks.live(), ElementsAre(3 * sizeof(lum_port_props)));
  EXPECT_EQ(lum_plat_deinit(0, 5, 1), 0u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

class context_cells : public ownership {
 protected:
  void SetUp() override {
    ownership::SetUp();
    const lum_slot_props slot = {1, 2};
    const auto props = props_of({0x50101, 0x50102});
    lum_slot_properties_init(5, 1, &slot);
    lum_port_properties_init(5, 1, 2, props.data());
  }
  static void give_cell(uint32_t rsip, uint32_t value) {
    lum_plat_set_sdev_ctx(5, 1, handle_for(rsip), value);
  }
};

TEST_F(context_cells, cell_that_is_replaced_is_left_with_its_holder) {
  block_watch blocks;
  give_cell(0x50101, 1);
  const uint32_t *held = lum_plat_get_sdev_ctx(5, 1, handle_for(0x50101));
  give_cell(0x50101, 2);
  EXPECT_EQ(*held, 1u);
  EXPECT_THAT(blocks.live(), ElementsAre(cell_size, cell_size));
  lum_port_properties_deinit(5, 1, 1);
  EXPECT_THAT(blocks.live(), ElementsAre(cell_size));
  blocks.release();
}

TEST_F(context_cells, cells_of_a_closed_instance_are_left_with_their_holders) {
  block_watch blocks;
  give_cell(0x50101, 1);
  give_cell(0x50102, 2);
  EXPECT_EQ(lum_plat_deinit(0, 5, 1), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(cell_size, cell_size));
  blocks.release();
}

TEST_F(ownership, slot_opened_again_frees_its_array) {
  const lum_slot_props slot = {1, 5};
  const block_watch blocks;
  EXPECT_EQ(lum_plat_init(0, 6, 0, &slot), 0u);
  EXPECT_EQ(lum_plat_init(0, 6, 0, &slot), 0u);
  EXPECT_THAT(blocks.live(), ElementsAre(5 * sizeof(lum_port_props)));
  EXPECT_EQ(lum_plat_deinit(0, 6, 0), 0u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

}  // namespace

}  // namespace ownership_test
