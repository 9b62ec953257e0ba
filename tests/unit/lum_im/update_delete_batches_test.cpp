// Update and delete batches built from the ports database.
#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

#include "controllers.h"

namespace update_delete_batches_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint32_t rsip = 0x30007;
const area lum_im = {"lum_im"};
const area here = {"lum_controller_interface"};

// Ports 7, 8 and 9 on slot 3, without modules and controllers.
class three_ports : public running_library {
 protected:
  void SetUp() override {
    running_library::SetUp();
    for (const uint32_t port : {7, 8, 9}) add_port(rsip_at(3, 0, port));
    clear_record();
  }
  // Port 7 on another rack, slot and instance, with handles 0x2001 to 0x2006.
  static void add_namesakes() {
    const uint32_t port = 7;
    uint32_t handle = 0x2001;
    for (const uint32_t namesake : {0x01030007, 0x00040007, 0x00030107}) {
      lum_add_device_to_ports_db(namesake >> 24, namesake >> 16 & 0xFF, namesake >> 8 & 0xFF, 1,
                                 &port, &handle);
      interface_at(namesake, 0).ifhandle = handle++;
      interface_at(namesake, 1).ifhandle = handle++;
    }
    clear_record();
  }
};

// ---- Update ----

class update_batch : public three_ports {
 protected:
  void SetUp() override {
    three_ports::SetUp();
    interface_at(rsip, 0).ifhandle = 0x1001;
    interface_at(rsip, 1).ifhandle = 0x1002;
    clear_record();
  }
};

TEST_F(update_batch, sends_both_handles_with_the_same_state) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 4), 0u);
  const batch &sent = im.batches.at(0);
  EXPECT_THAT(sent.ifhandles, ElementsAre(0x1001, 0x1002));
  EXPECT_EQ(sent.element(0)[0], 1);
  EXPECT_EQ(sent.element(0)[1], 1);
  EXPECT_EQ(sent.element(1)[0], 1);
  const auto *request = static_cast<lum_controller_update_request *>(sent.context);
  EXPECT_EQ(request->count, 2);
  EXPECT_EQ(request->state_change, 1u);
  EXPECT_EQ(request->capability_change, 0u);
  EXPECT_EQ(request->attrs, nullptr);
}

TEST_F(update_batch, hands_the_state_on_unchanged_for_both_handles) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 4), 0u);
  EXPECT_THAT(traces(),
              lines_in_order(
                  {lum_im.says("ddd", "controller_update,index,0,ifh,1001,controller_state,4"),
                   lum_im.says("ddd", "controller_update,index,1,ifh,1002,controller_state,4")}));
}

TEST_F(update_batch, state_0_is_present_and_0) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 0), 0u);
  for (const uint32_t element : {0u, 1u}) {
    EXPECT_EQ(im.batches.at(0).element(element)[0], 0);
    EXPECT_EQ(im.batches.at(0).element(element)[1], 1);
  }
}

TEST_F(update_batch, of_a_port_on_another_rack_slot_or_instance_sends_its_own_handles) {
  add_namesakes();
  EXPECT_EQ(lum_ots_controllers_update(1, 3, 0, 7, 1), 0u);
  EXPECT_EQ(lum_ots_controllers_update(0, 4, 0, 7, 1), 0u);
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 1, 7, 1), 0u);
  EXPECT_EQ(lum_ots_controllers_update(2, 3, 0, 7, 1), 0u);
  EXPECT_THAT(im.batches.at(0).ifhandles, ElementsAre(0x2001, 0x2002));
  EXPECT_THAT(im.batches.at(1).ifhandles, ElementsAre(0x2003, 0x2004));
  EXPECT_THAT(im.batches.at(2).ifhandles, ElementsAre(0x2005, 0x2006));
  EXPECT_THAT(im.batches.at(3).ifhandles, ElementsAre(0, 0));
}

TEST_F(update_batch, takes_no_database_mutex) {
  watch(lum_platform.mutex, "db");
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

TEST_F(update_batch, of_an_unknown_port_sends_two_zero_handles) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 44, 1), 0u);
  EXPECT_THAT(im.batches.at(0).ifhandles, ElementsAre(0, 0));
  EXPECT_THAT(traces(), Not(Contains(an_error())));
}

TEST_F(update_batch, walks_the_whole_database) {
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 0u);
  EXPECT_THAT(calls({"wavl_get_first", "wavl_get_next"}),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)",
                          "wavl_get_next(0x30008, 0)", "wavl_get_next(0x30009, 0)"));
}

TEST_F(update_batch, refused_is_traced_and_returned) {
  script.fail("im_update_req_by_ifhandle", 1, 0x1F);
  EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 0x1Fu);
  EXPECT_THAT(traces().back(),
              here.complains("ddddd", "controller op UPDATE for 0 3 0 7 failed, rc:0x1f\n"));
}

TEST_F(update_batch, without_memory_is_traced_with_errno_and_returns_12) {
  for (const unsigned nth : {1u, 2u}) {
    script.forget();
    script.fail("calloc", nth, 1);
    clear_record();
    EXPECT_EQ(lum_ots_controllers_update(0, 3, 0, 7, 1), 12u);
    EXPECT_THAT(traces(), ElementsAre(here.complains("d", "calloc failed with errno: 12\n")));
  }
  EXPECT_THAT(im.batches, IsEmpty());
}

// ---- Delete ----

class delete_batch : public three_ports {
 protected:
  void SetUp() override {
    three_ports::SetUp();
    uint32_t handle = 0x1001;
    for (const uint32_t port : {7, 8, 9}) {
      interface_at(rsip_at(3, 0, port), 0).ifhandle = handle++;
      interface_at(rsip_at(3, 0, port), 1).ifhandle = handle++;
    }
    clear_record();
  }
  static cerrno remove(const std::vector<uint32_t> &ports) {
    return lum_ots_controllers_delete(0, 3, 0, static_cast<uint32_t>(ports.size()), ports.data());
  }
  static std::vector<uint32_t> sent_handles(const batch &sent) {
    const auto *request = static_cast<lum_controller_delete_request *>(sent.context);
    return {request->ifhandles, request->ifhandles + request->count};
  }
};

TEST_F(delete_batch, appends_both_sub_ports_of_each_port_in_list_order) {
  EXPECT_EQ(remove({9, 7}), 0u);
  const batch &sent = im.batches.at(0);
  const auto *request = static_cast<lum_controller_delete_request *>(sent.context);
  EXPECT_EQ(request->count, 4);
  EXPECT_EQ(request->zero, nullptr);
  EXPECT_THAT(std::vector(request->ifhandles, request->ifhandles + 4),
              ElementsAre(0x1005, 0x1006, 0x1001, 0x1002));
  EXPECT_EQ(sent.iftype, 188u);
  EXPECT_EQ(sent.names[0], "Ots0_3_0_9_0");
}

TEST_F(delete_batch, takes_the_types_from_the_node) {
  interface_at(rsip, 0).iftype = 77;
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_EQ(im.batches.at(0).iftype, 77u);
}

TEST_F(delete_batch, of_a_port_on_another_rack_slot_or_instance_sends_its_own_handles) {
  add_namesakes();
  const uint32_t port = 7;
  EXPECT_EQ(lum_ots_controllers_delete(1, 3, 0, 1, &port), 0u);
  EXPECT_EQ(lum_ots_controllers_delete(0, 4, 0, 1, &port), 0u);
  EXPECT_EQ(lum_ots_controllers_delete(0, 3, 1, 1, &port), 0u);
  EXPECT_EQ(lum_ots_controllers_delete(2, 3, 0, 1, &port), 22u);
  ASSERT_EQ(im.batches.size(), 3u);
  EXPECT_THAT(sent_handles(im.batches[0]), ElementsAre(0x2001, 0x2002));
  EXPECT_THAT(sent_handles(im.batches[1]), ElementsAre(0x2003, 0x2004));
  EXPECT_THAT(sent_handles(im.batches[2]), ElementsAre(0x2005, 0x2006));
}

TEST_F(delete_batch, takes_no_database_mutex) {
  watch(lum_platform.mutex, "db");
  EXPECT_EQ(remove({9, 7}), 0u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
}

TEST_F(delete_batch, traces_the_beginning_and_the_success) {
  EXPECT_EQ(remove({7}), 0u);
  EXPECT_THAT(traces().front(), here.says("ddd", "controller DELETE for 0 3 0 is initiated\n"));
  EXPECT_THAT(traces().back(),
              here.says("dddd", "controller op DELETE  batch size 2for 0 3 0 is initiated\n"));
}

TEST_F(delete_batch, of_an_unknown_port_has_a_count_that_includes_two_zero_handles) {
  interface_at(rsip_at(3, 0, 9), 0).ifhandle = 0;  // so that handle 0 has a name
  EXPECT_EQ(remove({44, 7}), 0u);
  const auto *request = static_cast<lum_controller_delete_request *>(im.batches.at(0).context);
  EXPECT_EQ(request->count, 4);
  EXPECT_THAT(std::vector(request->ifhandles, request->ifhandles + 4),
              ElementsAre(0x1001, 0x1002, 0, 0));
}

TEST_F(delete_batch, with_an_unknown_port_fails_as_no_port_has_handle_0) {
  EXPECT_EQ(remove({44, 7}), 22u);
  EXPECT_THAT(traces(),
              Contains(lum_im.complains("dds",
                                        "controller_delete, lum_get_ifname_from_ctx failed,ifh:0x0,"
                                        "rc:0x16[error 22]")));
  EXPECT_THAT(traces().back(), here.complains("ddddd",
                                              "controller op DELETE  batch size 4for 0 3 "
                                              "0 failed, rc:0x16\n"));
  EXPECT_THAT(im.batches, IsEmpty());
}

TEST_F(delete_batch, of_no_port_is_a_bad_request) {
  EXPECT_EQ(remove({}), 22u);
  EXPECT_THAT(traces(), ElementsAre(here.says("ddd", "controller DELETE for 0 3 0 is initiated\n"),
                                    here.complains("ddddd",
                                                   "controller op DELETE  batch size 0for "
                                                   "0 3 0 failed, rc:0x16\n")));
}

TEST_F(delete_batch, port_listed_twice_is_sent_twice) {
  EXPECT_EQ(remove({7, 7}), 0u);
  const auto *request = static_cast<lum_controller_delete_request *>(im.batches.at(0).context);
  EXPECT_THAT(std::vector(request->ifhandles, request->ifhandles + 4),
              ElementsAre(0x1001, 0x1002, 0x1001, 0x1002));
}

TEST_F(delete_batch, walks_the_whole_database_for_each_port) {
  EXPECT_EQ(remove({7}), 0u);
  const auto made = calls({"wavl_get_first", "wavl_get_next"});
  ASSERT_GE(made.size(), 4u);
  EXPECT_THAT(std::vector(made.begin(), made.begin() + 4),
              ElementsAre("wavl_get_first(0)", "wavl_get_next(0x30007, 0)",
                          "wavl_get_next(0x30008, 0)", "wavl_get_next(0x30009, 0)"));
}

TEST_F(delete_batch, refused_is_traced_and_returned) {
  script.fail("im_req_by_name", 1, 0x1F);
  EXPECT_EQ(remove({7}), 0x1Fu);
  EXPECT_THAT(traces().back(), here.complains("ddddd",
                                              "controller op DELETE  batch size 2for 0 3 "
                                              "0 failed, rc:0x1f\n"));
}

TEST_F(delete_batch, without_memory_is_traced_with_errno_and_returns_12) {
  for (const unsigned nth : {1u, 2u, 3u}) {
    script.forget();
    script.fail("calloc", nth, 1);
    clear_record();
    EXPECT_EQ(remove({7}), 12u);
    EXPECT_THAT(traces(), ElementsAre(here.complains("d", "calloc failed with errno: 12\n")));
  }
  EXPECT_THAT(im.batches, IsEmpty());
}

TEST_F(delete_batch, of_more_ports_than_can_be_counted_returns_12) {
  EXPECT_EQ(lum_ots_controllers_delete(0, 3, 0, 0x80000000, nullptr), 12u);
}

}  // namespace

}  // namespace update_delete_batches_test
