// Batches on their way to the interface manager.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "blocks.h"
#include "controllers.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Optional;

namespace {

constexpr uint32_t rsip = 0x30007;
const area lum_im = {"lum_im"};

class requests : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    add_created_port(rsip, 0x1001, 0x1002);
    add_created_port(rsip + 1, 0x1003, 0x1004);
    set_controller_count(10);
    clear_record();
  }
  static uint32_t controllers() { return lum_get_ctx()->controller_count; }
  static cerrno create(lum_controller_create_request *request) {
    return lum_controllers_create(request, names, types);
  }
  static constexpr const char *names[] = {"Ots0_3_0_7_0", "Ots0_3_0_7_1"};
  static constexpr uint16_t types[] = {188, 77};
};

// Owns a request of the test's own.
template <typename Request>
class held {
 public:
  explicit held(Request *request) : request_(request) {}
  ~held() { free_request(request_); }
  held(const held &) = delete;
  held &operator=(const held &) = delete;
  Request *operator->() const { return request_; }
  operator Request *() const { return request_; }

 private:
  Request *request_;
};

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

TEST_F(requests, create_sends_one_batch_with_the_first_type_only) {
  const held request(create_request({controller(rsip, 0), controller(rsip, 1)}));
  EXPECT_EQ(create(request), 0u);
  EXPECT_THAT(calls(), ElementsAre("im_req_by_name(188, 2, 0x80000004, 2)"));
  const batch &sent = im.batches.at(0);
  EXPECT_THAT(sent.names, ElementsAre(Optional(std::string("Ots0_3_0_7_0")),
                                      Optional(std::string("Ots0_3_0_7_1"))));
  EXPECT_EQ(sent.context, static_cast<void *>(request));
  EXPECT_EQ(sent.complete, &lum_im_create_complete_resp_cb);
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

// ---- Delete ----

TEST_F(requests, delete_without_a_request_returns_22_without_a_trace) {
  EXPECT_EQ(lum_controllers_delete(nullptr, types), 22u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(requests, delete_request_with_count_0_returns_22_and_sends_nothing) {
  const held request(delete_request({0x1001}));
  request->count = 0;
  EXPECT_EQ(lum_controllers_delete(request, types), 22u);
  request->count = -2;
  EXPECT_EQ(lum_controllers_delete(request, types), 22u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

class delete_without_memory : public requests, public testing::WithParamInterface<unsigned> {};

// Names, elements, the first name and the second name.
TEST_P(delete_without_memory, returns_12_and_frees_what_it_had) {
  const held request(delete_request({0x1001, 0x1002}));
  const block_watch blocks;
  script.fail("calloc", GetParam(), 1);
  EXPECT_EQ(lum_controllers_delete(request, types), 12u);
  EXPECT_THAT(blocks.live(), IsEmpty());
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(im.batches, IsEmpty());
  EXPECT_EQ(controllers(), 10u);
}

INSTANTIATE_TEST_SUITE_P(each_allocation, delete_without_memory, testing::Range(1u, 5u));

TEST_F(requests, delete_sends_the_names_of_its_handles_and_the_first_type) {
  const held request(delete_request({0x1004, 0x1001}));
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_THAT(calls({"im_req_by_name"}), ElementsAre("im_req_by_name(188, 2, 0x80000005, 2)"));
  const batch &sent = im.batches.at(0);
  EXPECT_THAT(sent.names, ElementsAre(Optional(std::string("Ots0_3_0_8_1")),
                                      Optional(std::string("Ots0_3_0_7_0"))));
  EXPECT_EQ(sent.context, static_cast<void *>(request));
  EXPECT_EQ(sent.complete, &lum_im_delete_complete_resp_cb);
  EXPECT_THAT(
      traces(),
      ElementsAre(lum_im.says(
          "ds", "controller_delete optics_im_req_by_name bulk count:2 ifname :[Ots0_3_0_8_1]")));
}

TEST_F(requests, delete_takes_the_batch_from_the_count_of_controllers) {
  const held request(delete_request({0x1001, 0x1002}));
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_EQ(controllers(), 8u);
  set_controller_count(1);
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_EQ(controllers(), 255u);
}

TEST_F(requests, delete_with_one_unknown_handle_among_known_ones_sends_nothing_and_returns_22) {
  const held request(delete_request({0x1001, 0x9999, 0x1002}));
  const block_watch blocks;
  EXPECT_EQ(lum_controllers_delete(request, types), 22u);
  EXPECT_THAT(traces(), ElementsAre(lum_im.complains(
                            "dds",
                            "controller_delete, lum_get_ifname_from_ctx failed,ifh:0x9999,rc:0x16"
                            "[error 22]")));
  EXPECT_THAT(im.batches, IsEmpty());
  EXPECT_EQ(controllers(), 10u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(requests, refused_delete_is_traced_and_returned_and_counts_nothing) {
  const held request(delete_request({0x1001}));
  const block_watch blocks;
  script.fail("im_req_by_name", 1, 31);
  EXPECT_EQ(lum_controllers_delete(request, types), 31u);
  EXPECT_THAT(traces(),
              ElementsAre(lum_im.complains(
                  "ds", "controller_delete,optics_im_req_by_name_failed,rc:0x1f[error 31]")));
  EXPECT_EQ(controllers(), 10u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

TEST_F(requests, delete_without_the_callback_returns_0_without_a_trace) {
  lum_get_ctx()->platform_cbs.im_req_by_name = nullptr;
  const held request(delete_request({0x1001}));
  const block_watch blocks;
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(controllers(), 10u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

// ---- Name of a handle ----

TEST_F(requests, name_is_that_of_the_sub_port_that_carries_the_handle) {
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0x1003, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_8_0");
  EXPECT_EQ(lum_get_ifname_from_ctx(0x1002, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
}

TEST_F(requests, first_match_in_key_order_wins_sub_port_0_before_sub_port_1) {
  interface_at(rsip, 1).ifhandle = 0x2000;
  interface_at(rsip + 1, 0).ifhandle = 0x2000;
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0x2000, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
  interface_at(rsip, 0).ifhandle = 0x2000;
  EXPECT_EQ(lum_get_ifname_from_ctx(0x2000, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_0");
}

TEST_F(requests, name_look_up_walks_without_the_database_mutex_and_copies_at_most_64_characters) {
  watch(lum_platform.mutex, "db");
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0x1003, name), 0u);
  EXPECT_THAT(calls(),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)", "strncpy_s(65, 64)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(requests, name_without_an_end_is_cut_at_64_characters) {
  std::memset(interface_at(rsip, 0).ifname, 'x', 64);
  interface_at(rsip, 0).ifhandle = 0x2000;
  char name[65];
  std::memset(name, 'y', sizeof name);
  EXPECT_EQ(lum_get_ifname_from_ctx(0x2000, name), 0u);
  EXPECT_EQ(std::string(name), std::string(64, 'x'));
}

TEST_F(requests, handle_that_no_port_has_is_22) {
  char name[65] = "untouched";
  EXPECT_EQ(lum_get_ifname_from_ctx(0x9999, name), 22u);
  EXPECT_STREQ(name, "untouched");
}

TEST(request_names, empty_database_is_22) {
  ASSERT_EQ(boot(), 0u);
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0, name), 22u);
}

}  // namespace
