// Creations and updates on their way to the interface manager.
#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "blocks.h"
#include "controller_requests_fixture.h"

namespace controller_requests_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;

namespace {

// ---- Create ----

TEST_F(requests, create_without_an_argument_returns_22_without_a_trace) {
  const held request(create_request({controller(rsip, 0)}));
  EXPECT_EQ(lum_controllers_create(nullptr, names, types), 22u);
  EXPECT_EQ(lum_controllers_create(request, nullptr, types), 22u);
  EXPECT_EQ(lum_controllers_create(request, names, nullptr), 22u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(requests, create_request_with_count_0_returns_22_and_sends_nothing) {
  const held request(create_request({}));
  EXPECT_EQ(create(request), 22u);
  request->count = -1;
  EXPECT_EQ(create(request), 22u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(requests, create_without_memory_returns_12_without_a_trace) {
  const held request(create_request({controller(rsip, 0)}));
  script.fail("calloc", 1, 1);
  EXPECT_EQ(create(request), 12u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(requests, create_sends_one_batch_with_its_names) {
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  EXPECT_EQ(create(request), 0u);
  EXPECT_THAT(calls(), ElementsAre("im_req_by_name(188, 2, 0x80000004, 2)"));
  const batch &sent = im.batches.at(0);
  EXPECT_THAT(sent.names, ElementsAre(Optional(std::string("Ots0_3_0_7_0")),
                                      Optional(std::string("Ots0_3_0_7_1"))));
  EXPECT_EQ(sent.context, static_cast<void *>(request));
  EXPECT_EQ(sent.complete, &lum_im_create_complete_resp_cb);
}

TEST_F(requests, create_sends_the_first_of_the_types) {
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  const uint16_t first_77[] = {77, 188};
  EXPECT_EQ(lum_controllers_create(request, names, first_77), 0u);
  EXPECT_THAT(calls(), ElementsAre("im_req_by_name(77, 2, 0x80000004, 2)"));
}

TEST_F(requests, create_traces_each_controller_and_the_success) {
  const held request(create_request({controller(0x01030207, 0), controller(0x01030208, 1)}));
  EXPECT_EQ(create(request), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_im.says("ddddd", "controller_create,rack,1,slot,3,instance,2,port,7,index,0"),
                  lum_im.says("ddddd", "controller_create,rack,1,slot,3,instance,2,port,8,index,1"),
                  lum_im.says("d", "controller_create,send im_req_by_name_success,count,2")));
}

TEST_F(requests, create_adds_the_batch_to_the_count_of_controllers) {
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  EXPECT_EQ(create(request), 0u);
  EXPECT_EQ(controllers(), 12u);
}

TEST_F(requests, create_is_counted_before_its_success_is_traced) {
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  const auto counts = counts_at("controller_create,send im_req_by_name_success,count,2",
                                [&] { EXPECT_EQ(create(request), 0u); });
  EXPECT_THAT(counts, ElementsAre(12));
}

TEST_F(requests, create_of_256_controllers_leaves_the_count_of_controllers_unchanged) {
  lum_controller_create_request request = {};
  std::vector<lum_controller_create_entry> entries(256);
  const std::vector<const char *> no_names(256);
  request.count = 256;
  request.entries = entries.data();
  EXPECT_EQ(lum_controllers_create(&request, no_names.data(), types), 0u);
  EXPECT_EQ(im.batches.at(0).count, 256u);
  EXPECT_EQ(controllers(), 10u);
}

TEST_F(requests, count_of_controllers_wraps_at_8_bits) {
  set_controller_count(255);
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  EXPECT_EQ(create(request), 0u);
  EXPECT_EQ(controllers(), 1u);
}

TEST_F(requests, refused_create_is_traced_and_returned_and_counts_nothing) {
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  script.fail("im_req_by_name", 1, 0x1F);
  EXPECT_EQ(create(request), 0x1Fu);
  EXPECT_THAT(
      traces(),
      Contains(lum_im.complains(
          "dds", "controller_create,send im_req_by_name_failed,count:2,rc:0x1f[error 31]")));
  EXPECT_THAT(
      traces(),
      Not(Contains(lum_im.says("d", "controller_create,send im_req_by_name_success,count,2"))));
  EXPECT_EQ(controllers(), 10u);
}

// The controllers are told one by one, then nothing is sent.
TEST_F(requests, create_without_the_callback_returns_0_and_sends_nothing) {
  lum_get_ctx()->platform_cbs.im_req_by_name = nullptr;
  const held request(create_request({controller(rsip, 0)}));
  EXPECT_EQ(create(request), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_im.says(
                            "ddddd", "controller_create,rack,0,slot,3,instance,0,port,7,index,0")));
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_EQ(controllers(), 10u);
}

TEST_F(requests, without_a_context_create_update_and_delete_return_0_and_send_nothing) {
  const held created(create_request({controller(rsip, 0)}));
  const held updated(update_request({0x1001}));
  const held removed(delete_request({0x1001}));
  {
    const context_hidden hidden;
    EXPECT_EQ(create(created), 0u);
    EXPECT_EQ(lum_controllers_update(updated), 0u);
    EXPECT_EQ(lum_controllers_delete(removed, types), 0u);
  }
  EXPECT_THAT(im.batches, IsEmpty());
  EXPECT_EQ(controllers(), 10u);
}

TEST_F(requests, create_leaves_the_request_alone_and_frees_the_payload) {
  const block_watch blocks;
  const held request(create_request({controller(rsip, 0)}));
  EXPECT_EQ(create(request), 0u);
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(create(request), 31u);
  EXPECT_THAT(blocks.live(), ElementsAre(sizeof(lum_controller_create_request),
                                         sizeof(lum_controller_create_entry)));
}

// ---- Update ----

TEST_F(requests, update_without_a_request_or_handles_is_traced_and_returns_22) {
  EXPECT_EQ(lum_controllers_update(nullptr), 22u);
  lum_controller_update_request request = {};
  request.count = 2;
  EXPECT_EQ(lum_controllers_update(&request), 22u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.complains("DD", "invalid update req (nil) or ifh list (nil)"),
                          lum_im.complains("DD", "invalid update req " + address(&request) +
                                                     " or ifh list (nil)")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(requests, update_without_handles_is_refused_before_its_count_is_looked_at) {
  lum_controller_update_request request = {};
  EXPECT_EQ(lum_controllers_update(&request), 22u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.complains(
                  "DD", "invalid update req " + address(&request) + " or ifh list (nil)")));
}

TEST_F(requests, update_with_count_below_1_is_traced_and_returns_22) {
  const held request(update_request({0x1001}));
  request->count = 0;
  EXPECT_EQ(lum_controllers_update(request), 22u);
  request->count = -3;
  EXPECT_EQ(lum_controllers_update(request), 22u);
  EXPECT_THAT(traces(), ElementsAre(lum_im.complains("d", "invalid bulk count:0"),
                                    lum_im.complains("d", "invalid bulk count:-3")));
}

TEST_F(requests, update_without_memory_is_traced_and_returns_12) {
  const held request(update_request({0x1001, 0x1002}));
  script.fail("calloc", 1, 1);
  EXPECT_EQ(lum_controllers_update(request), 12u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.says("d", "controller_update,entry,bulk_count,2"),
                          lum_im.complains("d", "failed to allocate for 2 notifications")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(requests, update_sends_its_handles_type_188_and_the_payload_size_in_bytes) {
  const held request(update_request({0x1001, 0x1002}));
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_THAT(calls(), ElementsAre("im_update_req_by_ifhandle(188, 3744, 0x80000006, 2)"));
  const batch &sent = im.batches.at(0);
  EXPECT_THAT(sent.ifhandles, ElementsAre(0x1001, 0x1002));
  EXPECT_EQ(sent.context, static_cast<void *>(request));
  EXPECT_EQ(sent.complete, &lum_im_update_complete_resp_cb);
  EXPECT_THAT(traces(), ElementsAre(lum_im.says("d", "controller_update,entry,bulk_count,2"),
                                    lum_im.says("d", "controller_update_success,bulk_count,2")));
}

TEST_F(requests, update_traces_each_state_and_each_capability_block) {
  uint32_t states[] = {0, 3};
  std::vector<lum_controller_attrs> attrs(2);
  const held request(update_request({0x1001, 0x1002}));
  request->states = states;
  request->attrs = attrs.data();
  request->state_change = 1;
  request->capability_change = 1;
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_im.says("d", "controller_update,entry,bulk_count,2"),
                  lum_im.says("ddd", "controller_update,index,0,ifh,1001,controller_state,0"),
                  lum_im.says("dd", "controller_update,index,0,ifh,1001"),
                  lum_im.says("ddd", "controller_update,index,1,ifh,1002,controller_state,3"),
                  lum_im.says("dd", "controller_update,index,1,ifh,1002"),
                  lum_im.says("d", "controller_update_success,bulk_count,2")));
}

TEST_F(requests, update_of_states_only_reads_and_traces_no_capabilities) {
  uint32_t states[] = {1, 2};
  const held request(update_request({0x1001, 0x1002}));
  request->states = states;
  request->state_change = 1;
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_im.says("d", "controller_update,entry,bulk_count,2"),
                  lum_im.says("ddd", "controller_update,index,0,ifh,1001,controller_state,1"),
                  lum_im.says("ddd", "controller_update,index,1,ifh,1002,controller_state,2"),
                  lum_im.says("d", "controller_update_success,bulk_count,2")));
}

TEST_F(requests, update_of_capabilities_only_reads_and_traces_no_states) {
  std::vector<lum_controller_attrs> attrs(2);
  const held request(update_request({0x1001, 0x1002}));
  request->attrs = attrs.data();
  request->capability_change = 1;
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_THAT(traces(), ElementsAre(lum_im.says("d", "controller_update,entry,bulk_count,2"),
                                    lum_im.says("dd", "controller_update,index,0,ifh,1001"),
                                    lum_im.says("dd", "controller_update,index,1,ifh,1002"),
                                    lum_im.says("d", "controller_update_success,bulk_count,2")));
}

TEST_F(requests, update_does_not_change_the_count_of_controllers) {
  const held request(update_request({0x1001, 0x1002}));
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_EQ(controllers(), 10u);
}

TEST_F(requests, refused_update_is_traced_and_returned) {
  const held request(update_request({0x1001, 0x1002}));
  script.fail("im_update_req_by_ifhandle", 1, 0x80000011);
  EXPECT_EQ(lum_controllers_update(request), 0x80000011u);
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_im.says("d", "controller_update,entry,bulk_count,2"),
                  lum_im.complains("dds",
                                   "controller_update,im_update_req_by_ifhandle_failed,bulk_count,2"
                                   ",rc:0x80000011[error 2147483665]")));
}

TEST_F(requests, update_without_the_callback_is_traced_as_a_success_and_sends_nothing) {
  lum_get_ctx()->platform_cbs.im_update_req_by_ifhandle = nullptr;
  const held request(update_request({0x1001}));
  EXPECT_EQ(lum_controllers_update(request), 0u);
  EXPECT_THAT(traces(), Contains(lum_im.says("d", "controller_update_success,bulk_count,1")));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(requests, update_leaves_the_request_alone_and_frees_the_payload) {
  const block_watch blocks;
  const held request(update_request({0x1001}));
  EXPECT_EQ(lum_controllers_update(request), 0u);
  script.fail("im_update_req_by_ifhandle", 1, 31);
  EXPECT_EQ(lum_controllers_update(request), 31u);
  EXPECT_THAT(blocks.live(), ElementsAre(sizeof(lum_controller_update_request), 4u));
}

}  // namespace

}  // namespace controller_requests_test
