// Arrays that are not there are refused before anything is traced, called or changed.
#include <gmock/gmock.h>

#include <cstdint>

#include "controllers.h"

namespace null_arrays_test {

using namespace support;
using testing::IsEmpty;

namespace {

class null_arrays : public created_ports {
 protected:
  void SetUp() override {
    created_ports::SetUp();
    lum_get_ctx()->resync = 1;
    clear_record();
  }
  void TearDown() override {
    EXPECT_THAT(traces(), IsEmpty());
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(lum_get_ctx()->resync, 1u);
    EXPECT_EQ(lum_get_ctx()->controller_count, 4u);
    EXPECT_NE(data_at(first).is_dom_enabled, 0u);
  }
};

TEST_F(null_arrays, slot_without_properties_is_refused) {
  EXPECT_EQ(lum_plat_init(0, 5, 1, nullptr), 22u);
  EXPECT_EQ(lum_plat_is_slot_used(5), 0u);
}

TEST_F(null_arrays, ports_without_records_are_refused) {
  EXPECT_EQ(lum_create_ports(1, nullptr), 22u);
}

TEST_F(null_arrays, deletion_without_port_numbers_is_refused) {
  EXPECT_EQ(lum_delete_ports(0, 3, 0, 2, nullptr), 22u);
}

TEST_F(null_arrays, create_batch_without_entries_is_refused) {
  const char *const names[] = {"Ots0_3_0_7_0"};
  const uint16_t types[] = {188};
  lum_controller_create_request request = {};
  request.count = 1;
  EXPECT_EQ(lum_controllers_create(&request, names, types), 22u);
}

TEST_F(null_arrays, update_batch_without_what_it_says_it_changes_is_refused) {
  uint32_t ifhandles[] = {0x1001};
  lum_controller_update_request request = {};
  request.count = 1;
  request.ifhandles = ifhandles;
  request.state_change = 1;
  EXPECT_EQ(lum_controllers_update(&request), 22u);
  request.state_change = 0;
  request.capability_change = 1;
  EXPECT_EQ(lum_controllers_update(&request), 22u);
}

TEST_F(null_arrays, delete_batch_without_handles_or_types_is_refused) {
  uint32_t ifhandles[] = {0x1001};
  const uint16_t types[] = {188};
  lum_controller_delete_request request = {};
  request.count = 1;
  EXPECT_EQ(lum_controllers_delete(&request, types), 22u);
  request.ifhandles = ifhandles;
  EXPECT_EQ(lum_controllers_delete(&request, nullptr), 22u);
}

}  // namespace

}  // namespace null_arrays_test
