// Calls for hardware information: handles, results, LEDs, arguments and locks.
#include <gmock/gmock.h>

#include <thread>

#include "hw_info_fixture.h"

namespace hw_info_calls_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_controller_interface";

// ---- Handles ----

TEST_F(hw_info, ptah_is_asked_for_the_sub_ports_own_handle) {
  report(handle_0);
  report(handle_1);
  report(foreign_handle);
  EXPECT_THAT(calls({"ptah_al_get_all_from_ptah"}),
              ElementsAre("ptah_al_get_all_from_ptah(0x801)", "ptah_al_get_all_from_ptah(0x802)",
                          "ptah_al_get_all_from_ptah(0x802)"));
}

TEST_F(hw_info, any_handle_but_that_of_sub_port_0_means_sub_port_1) {
  EXPECT_THAT(differences(report(foreign_handle), report(handle_1)), IsEmpty());
}

TEST_F(hw_info, several_handles_fill_one_record_each) {
  const uint32_t handles[] = {handle_1, handle_0};
  lum_hw_info_out records[] = {untouched_record(), untouched_record()};
  EXPECT_EQ(lum_get_hw_info(2, handles, records), 0u);
  EXPECT_EQ(word_at<uint16_t>(records[0], 5580), 0x62);
  EXPECT_EQ(word_at<uint16_t>(records[1], 5580), 0x42);
  EXPECT_THAT(traces(), ElementsAre(info(130, "num_count 2\n").of(area)));
}

TEST_F(hw_info, port_without_a_module_does_not_end_the_call) {
  add_port_with_handles(8, 0x2001, 0x2002);
  port().inserted = 0;
  const uint32_t handles[] = {handle_0, 0x2001};
  lum_hw_info_out records[2] = {};
  EXPECT_EQ(lum_get_hw_info(2, handles, records), 0u);
  EXPECT_EQ(word_at<uint32_t>(records[0], 5548), 0u);
  EXPECT_EQ(word_at<uint32_t>(records[1], 5548), 1u);
}

TEST_F(hw_info, unknown_handle_returns_22_at_once) {
  const uint32_t handles[] = {handle_0, 0x9999, handle_1};
  lum_hw_info_out records[] = {untouched_record(), untouched_record(), untouched_record()};
  EXPECT_EQ(lum_get_hw_info(3, handles, records), 22u);
  EXPECT_EQ(word_at<uint32_t>(records[0], 5548), 1u);
  EXPECT_THAT(differences(records[1], untouched_record()), IsEmpty());
  EXPECT_THAT(differences(records[2], untouched_record()), IsEmpty());
}

TEST_F(hw_info, name_whose_port_is_not_in_the_database_returns_22) {
  client.set_name(0x9999, "Ots0_3_1_9_0");
  const uint32_t handle = 0x9999;
  lum_hw_info_out record = untouched_record();
  EXPECT_EQ(lum_get_hw_info(1, &handle, &record), 22u);
  EXPECT_THAT(differences(record, untouched_record()), IsEmpty());
}

// ---- The LED ----

TEST_F(hw_info, led_is_the_one_asked_for_last_when_the_platform_cannot_read_it) {
  port().led_state = 9;
  script.fail_always("led_get_state", 5);
  EXPECT_EQ(reported<uint32_t>(handle_0, 400), 9u);
}

TEST_F(hw_info, led_without_a_callback_stays_as_the_caller_set_it) {
  lum_get_ctx()->platform_cbs.led_get_state = nullptr;
  EXPECT_EQ(reported<uint32_t>(handle_0, 400), 0xEEEEEEEEu);
}

TEST_F(hw_info, led_is_read_once_before_the_alarms) {
  report(handle_0);
  EXPECT_THAT(calls({"led_get_state", "ptah_al_get_all_from_ptah"}),
              ElementsAre("led_get_state(0x30107, 0)", "ptah_al_get_all_from_ptah(0x801)"));
}

// Port 7 goes while its LED is read, port 8 stays.
class led_results : public hw_info {
 protected:
  void SetUp() override {
    hw_info::SetUp();
    add_port_with_handles(8, 0x2001, 0x2002);
    lum_get_ctx()->platform_cbs.led_get_state = [](uint32_t at, uint32_t, uint32_t *) -> cerrno {
      if (at != rsip) return 0;
      lum_ports_db_remove_entry(at);
      return 5;
    };
    clear_record();
  }
  lum_hw_info_out records[2] = {};
};

TEST_F(led_results, success_of_the_last_hides_the_failure_before_it) {
  const uint32_t handles[] = {handle_0, 0x2001};
  EXPECT_EQ(lum_get_hw_info(2, handles, records), 0u);
  EXPECT_EQ(word_at<uint32_t>(records[0], 5548), 1u);
  EXPECT_EQ(word_at<uint32_t>(records[1], 5548), 1u);
}

TEST_F(led_results, failure_of_the_last_is_the_result) {
  const uint32_t handles[] = {0x2001, handle_0};
  EXPECT_EQ(lum_get_hw_info(2, handles, records), 22u);
  EXPECT_EQ(word_at<uint32_t>(records[0], 5548), 1u);
  EXPECT_EQ(word_at<uint32_t>(records[1], 5548), 1u);
}

TEST_F(led_results, failure_of_a_port_without_a_module_is_the_result_too) {
  port().inserted = 0;
  const uint32_t handle = handle_0;
  EXPECT_EQ(lum_get_hw_info(1, &handle, records), 22u);
  EXPECT_EQ(word_at<uint32_t>(records[0], 404), 1u);
  EXPECT_EQ(word_at<uint32_t>(records[0], 5548), 0u);
  EXPECT_THAT(calls({"ptah_al_get_all_from_ptah"}), IsEmpty());
}

// ---- Arguments and locks ----

TEST_F(hw_info, missing_arrays_are_traced_and_refused) {
  const uint32_t handle = handle_0;
  lum_hw_info_out record = {};
  EXPECT_EQ(lum_get_hw_info(1, nullptr, &record), 22u);
  EXPECT_EQ(lum_get_hw_info(0, &handle, nullptr), 22u);
  EXPECT_THAT(traces(),
              ElementsAre(info(130, "num_count 1\n").of(area),
                          error(131, "Invalid i/p params in retrieve hw info cb fn").of(area),
                          info(130, "num_count 0\n"),
                          error(131, "Invalid i/p params in retrieve hw info cb fn")));
}

TEST_F(hw_info, count_below_1_is_traced_and_refused) {
  const uint32_t handle = handle_0;
  lum_hw_info_out record = untouched_record();
  EXPECT_EQ(lum_get_hw_info(0, &handle, &record), 22u);
  EXPECT_EQ(lum_get_hw_info(-1, &handle, &record), 22u);
  EXPECT_THAT(
      traces(),
      ElementsAre(info("num_count 0\n"), error(132, "Invalid count in retrieve hw cb").of(area),
                  info("num_count -1\n"), error(132, "Invalid count in retrieve hw cb")));
  EXPECT_THAT(differences(record, untouched_record()), IsEmpty());
}

TEST_F(hw_info, neither_module_nor_port_mutex_is_touched) {
  watch(port().port_mutex, "port");
  report(handle_0);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock"}), IsEmpty());
  EXPECT_THAT(transfers(), IsEmpty());
}

TEST_F(hw_info, reports_while_the_port_is_polled_configured_and_its_identity_replaced) {
  set_controller_count(2);
  const uint32_t handle = handle_0;
  const lum_hw_info_in settings = {};
  const uint64_t bits = 0x10040202;
  std::thread configuring([&] {
    for (int i = 0; i < 100; ++i) lum_set_hw_info(1, &handle, &settings, &bits);
  });
  std::thread plugging([] {
    for (int i = 0; i < 100; ++i) lum_update_vendor_info(rsip, 1);
  });
  polling.start_cycle();
  for (int i = 0; i < 100; ++i) report(handle_0);
  polling.run_cycle();
  configuring.join();
  plugging.join();
  EXPECT_EQ(reported<uint32_t>(handle_0, 5608), 10000u) << "the module's reading is 0";
}

TEST_F(hw_info, by_ifh_is_the_same) {
  const uint32_t handle = handle_1;
  lum_hw_info_out record = untouched_record();
  EXPECT_EQ(lum_get_hw_info_by_ifh(1, &handle, &record), 0u);
  EXPECT_THAT(differences(record, report(handle_1)), IsEmpty());
  EXPECT_EQ(lum_get_hw_info_by_ifh(1, nullptr, &record), 22u);
}

}  // namespace

}  // namespace hw_info_calls_test
