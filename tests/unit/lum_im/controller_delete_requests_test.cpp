// Deletions on their way to the interface manager, and the names that they look up.
#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "blocks.h"
#include "controller_requests_fixture.h"

namespace controller_delete_requests_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace {

class delete_requests : public requests {};

TEST_F(delete_requests, delete_without_a_request_returns_22_without_a_trace) {
  EXPECT_EQ(lum_controllers_delete(nullptr, types), 22u);
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(delete_requests, delete_request_with_count_0_returns_22_and_sends_nothing) {
  const held request(delete_request({0x1001}));
  request->count = 0;
  EXPECT_EQ(lum_controllers_delete(request, types), 22u);
  request->count = -2;
  EXPECT_EQ(lum_controllers_delete(request, types), 22u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

class delete_without_memory : public delete_requests,
                              public testing::WithParamInterface<unsigned> {};

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

TEST_F(delete_requests, delete_sends_the_names_of_its_handles) {
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

TEST_F(delete_requests, delete_takes_the_batch_from_the_count_of_controllers) {
  const held request(delete_request({0x1001, 0x1002}));
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_EQ(controllers(), 8u);
  set_controller_count(1);
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_EQ(controllers(), 255u);
}

TEST_F(delete_requests, delete_sends_the_first_of_the_types) {
  const held request(delete_request({0x1001, 0x1002}));
  const uint16_t first_77[] = {77, 188};
  EXPECT_EQ(lum_controllers_delete(request, first_77), 0u);
  EXPECT_THAT(calls({"im_req_by_name"}), ElementsAre("im_req_by_name(77, 2, 0x80000005, 2)"));
}

TEST_F(delete_requests, delete_is_counted_before_its_success_is_traced) {
  const held request(delete_request({0x1001, 0x1002}));
  const auto counts = counts_at("controller_delete optics_im_req_by_name bulk count:2",
                                [&] { EXPECT_EQ(lum_controllers_delete(request, types), 0u); });
  EXPECT_THAT(counts, ElementsAre(8));
}

TEST_F(delete_requests,
       delete_with_one_unknown_handle_among_known_ones_sends_nothing_and_returns_22) {
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

TEST_F(delete_requests, refused_delete_is_traced_and_returned_and_counts_nothing) {
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

TEST_F(delete_requests, delete_without_the_callback_returns_0_without_a_trace) {
  lum_get_ctx()->platform_cbs.im_req_by_name = nullptr;
  const held request(delete_request({0x1001}));
  const block_watch blocks;
  EXPECT_EQ(lum_controllers_delete(request, types), 0u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_EQ(controllers(), 10u);
  EXPECT_THAT(blocks.live(), IsEmpty());
}

// ---- Name of a handle ----

TEST_F(delete_requests, name_is_that_of_the_sub_port_that_carries_the_handle) {
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0x1003, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_8_0");
  EXPECT_EQ(lum_get_ifname_from_ctx(0x1002, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
}

TEST_F(delete_requests, first_match_in_key_order_wins_sub_port_0_before_sub_port_1) {
  interface_at(rsip, 1).ifhandle = 0x2000;
  interface_at(rsip + 1, 0).ifhandle = 0x2000;
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0x2000, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_1");
  interface_at(rsip, 0).ifhandle = 0x2000;
  EXPECT_EQ(lum_get_ifname_from_ctx(0x2000, name), 0u);
  EXPECT_STREQ(name, "Ots0_3_0_7_0");
}

TEST_F(delete_requests,
       name_look_up_walks_without_the_database_mutex_and_copies_at_most_64_characters) {
  watch(lum_platform.mutex, "db");
  char name[65] = {};
  EXPECT_EQ(lum_get_ifname_from_ctx(0x1003, name), 0u);
  EXPECT_THAT(calls(),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)", "strncpy_s(65, 64)"));
  EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(delete_requests, name_without_an_end_is_cut_at_64_characters) {
  std::memset(interface_at(rsip, 0).ifname, 'x', 64);
  interface_at(rsip, 0).ifhandle = 0x2000;
  char name[65];
  std::memset(name, 'y', sizeof name);
  EXPECT_EQ(lum_get_ifname_from_ctx(0x2000, name), 0u);
  EXPECT_EQ(std::string(name), std::string(64, 'x'));
}

TEST_F(delete_requests, handle_that_no_port_has_is_22) {
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

}  // namespace controller_delete_requests_test
