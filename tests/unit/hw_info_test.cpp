// Hardware information: the whole record, byte by byte.
#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "one_port.h"
#include "performance.h"

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *area = "lum_controller_interface";
constexpr uint8_t filler = 0xEE;

lum_hw_info_out untouched_record() {
  lum_hw_info_out record;
  std::memset(&record, filler, sizeof record);
  return record;
}

// A text field: cleared, then the text.
void put_field(lum_hw_info_out &record, std::size_t position, std::size_t size,
               std::string_view text) {
  auto *field = reinterpret_cast<uint8_t *>(&record) + position;
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), text.size());
}

// Positions of bytes that differ.
std::vector<std::size_t> differences(const lum_hw_info_out &a, const lum_hw_info_out &b) {
  std::vector<std::size_t> found;
  for (std::size_t at = 0; at < 5616; ++at) {
    if (word_at<uint8_t>(a, at) != word_at<uint8_t>(b, at)) found.push_back(at);
  }
  return found;
}

class hw_info : public one_port {
 protected:
  void SetUp() override {
    one_port::SetUp();
    client.set_led(rsip, 3);
    fill_identity();
    fill_readings();
    fill_ptah(handle_0, 0x4000000000000001, 1000);
    fill_ptah(handle_1, 0x8000000000000002, 2000);
    clear_record();
  }

  static void fill_identity() {
    lum_vendor_info &vendor = port().vendor;
    std::strcpy(vendor.vendor_name, "SIXTEEN LETTERS!");
    std::strcpy(vendor.vendor_rev, "B7");
    std::strcpy(vendor.vendor_extra_code, "CLEI");
    std::strcpy(vendor.vendor_extra_id, "EXTRA ID 18 LONG..");
    std::strcpy(vendor.vendor_part_number, "PART-NUMBER-16ch");
    std::strcpy(vendor.vendor_serial_number, "SERIAL-NUMBER-16");
    std::memcpy(vendor.vendor_date_code, "20260131", 8);
    vendor.vendor_oui[0] = 0x00;
    vendor.vendor_oui[1] = 0x0A;
    vendor.vendor_oui[2] = 0xFE;
    vendor.fw_version = 0xABCD0C07;
  }
  static void fill_readings() {
    lum_port_data &data = port();
    data.module_temperature = 0x1980;  // 25.5 degrees
    data.module_word_16 = 32999;
    data.dom[0] = {{0, 1000, 500, 7777, 1239}, {1, 2, 3}, {}};
    data.dom[1] = {{0xFC19, 1, 2000, 8888, 65535}, {4, 0, 2}, {}};
  }
  static void fill_ptah(uint32_t ifhandle, uint64_t bitmap, uint32_t first) {
    ptah_al_all &all = performance.ptah[ifhandle];
    all.bitmap = bitmap;
    for (uint32_t i = 0; i < 55; ++i) all.values[i] = first + i;
  }

  static lum_hw_info_out report(uint32_t ifhandle) {
    lum_hw_info_out record = untouched_record();
    EXPECT_EQ(lum_get_hw_info(1, &ifhandle, &record), 0u);
    return record;
  }
  template <typename Word>
  static Word reported(uint32_t ifhandle, std::size_t position) {
    return word_at<Word>(report(ifhandle), position);
  }
};

// What both sub-ports' records have in common.
lum_hw_info_out common_record() {
  lum_hw_info_out expected = untouched_record();
  put_word<uint32_t>(expected, 388, 83);
  put_word<int32_t>(expected, 392, 2550);
  put_word<uint32_t>(expected, 396, 329);
  put_word<uint32_t>(expected, 400, 3);
  put_word<uint32_t>(expected, 404, 1);
  put_field(expected, 408, 512, "Firmware Version \t: 12.07");
  put_field(expected, 1432, 512, "SERIAL-NUMBER-16");
  put_field(expected, 1944, 512, "B7");
  put_field(expected, 2456, 512, "PART-NUMBER-16ch");
  put_field(expected, 3480, 512, "SIXTEEN LETTERS!");
  put_field(expected, 3992, 512, "00.0a.fe");
  put_field(expected, 4504, 512, "EXTRA ID 18 LONG..");
  put_field(expected, 5016, 512, "CLEI");
  put_field(expected, 5528, 8, "20260131");
  put_word<uint32_t>(expected, 5548, 1);
  return expected;
}

// ---- Whole records ----

TEST_F(hw_info, whole_record_of_sub_port_0) {
  lum_hw_info_out expected = common_record();
  put_word<uint64_t>(expected, 40, 0x4000000000000001);
  for (uint32_t i = 0; i < 55; ++i) put_word<uint32_t>(expected, 56 + 4 * i, 1000 + i);
  put_word<uint16_t>(expected, 5556, 123);
  put_word<uint8_t>(expected, 5568, 1);
  put_word<uint16_t>(expected, 5580, 0x42);
  put_word<uint32_t>(expected, 5584, 2);
  put_word<uint32_t>(expected, 5600, 31622);
  put_word<uint32_t>(expected, 5604, 100000);
  put_word<uint32_t>(expected, 5608, 10000);
  EXPECT_THAT(differences(report(handle_0), expected), IsEmpty());
}

TEST_F(hw_info, whole_record_of_sub_port_1) {
  lum_hw_info_out expected = common_record();
  put_word<uint64_t>(expected, 40, 0x8000000000000002);
  for (uint32_t i = 0; i < 55; ++i) put_word<uint32_t>(expected, 56 + 4 * i, 2000 + i);
  put_word<uint16_t>(expected, 5556, 6553);
  put_word<uint32_t>(expected, 5564, 1);
  put_word<uint8_t>(expected, 5568, 0);
  put_word<uint16_t>(expected, 5580, 0x62);
  put_word<uint32_t>(expected, 5584, 3);
  put_word<uint32_t>(expected, 5600, 1000000);
  put_word<uint32_t>(expected, 5604, 10023);
  put_word<uint32_t>(expected, 5608, 1000);  // 0xFC19 is -1000
  EXPECT_THAT(differences(report(handle_1), expected), ElementsAre());
}

TEST_F(hw_info, port_without_a_module_reports_only_its_led_404_and_5548) {
  port().inserted = 0;
  lum_hw_info_out expected = untouched_record();
  put_word<uint32_t>(expected, 400, 3);
  put_word<uint32_t>(expected, 404, 1);
  put_word<uint32_t>(expected, 5548, 0);
  EXPECT_THAT(differences(report(handle_0), expected), IsEmpty());
  EXPECT_THAT(differences(report(handle_1), expected), IsEmpty());
  EXPECT_THAT(calls({"ptah_al_get_all_from_ptah"}), IsEmpty());
}

TEST_F(hw_info, any_inserted_word_but_0_is_a_module) {
  port().inserted = 0x100;
  EXPECT_EQ(reported<uint32_t>(handle_0, 5548), 1u);
}

// ---- Single fields ----

TEST_F(hw_info, temperature_is_in_hundredths_cut_towards_zero) {
  const struct {
    int16_t raw;
    int32_t hundredths;
  } rows[] = {{0, 0}, {256, 100}, {-256, -100},   {-128, -50},      {1, 0},        {-1, 0},
              {3, 1}, {-3, -1},   {32767, 12799}, {-32768, -12800}, {0x1A2B, 2616}};
  for (const auto &row : rows) {
    port().module_temperature = row.raw;
    EXPECT_EQ(reported<int32_t>(handle_0, 392), row.hundredths) << row.raw;
  }
}

TEST_F(hw_info, supply_is_divided_by_100) {
  for (const uint32_t raw : {0u, 99u, 100u, 33000u, 65535u}) {
    port().module_word_16 = static_cast<uint16_t>(raw);
    EXPECT_EQ(reported<uint32_t>(handle_1, 396), raw / 100);
  }
}

TEST_F(hw_info, firmware_shows_bits_8_to_15_and_0_to_7) {
  const struct {
    uint32_t version;
    const char *text;
  } rows[] = {{0, "Firmware Version \t: 0.00"},
              {0x106, "Firmware Version \t: 1.06"},
              {0xFFFFFFFF, "Firmware Version \t: 255.255"},
              {0x10000, "Firmware Version \t: 0.00"}};
  for (const auto &row : rows) {
    port().vendor.fw_version = row.version;
    const lum_hw_info_out record = report(handle_0);
    EXPECT_STREQ(reinterpret_cast<const char *>(&record) + 408, row.text);
  }
}

TEST_F(hw_info, date_code_that_is_shorter_than_its_field_is_filled_up_with_zeros) {
  std::memcpy(port().vendor.vendor_date_code, "2601\0xyz", 8);
  const lum_hw_info_out record = report(handle_0);
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char *>(&record) + 5528, "2601\0\0\0\0", 8), 0);
}

TEST_F(hw_info, mode_read_back_is_0_then_0_2_then_3_any_other_2) {
  const struct {
    uint8_t status;
    uint32_t mode;
  } rows[] = {{0, 0}, {1, 2}, {2, 3}, {3, 2}, {4, 2}, {255, 2}};
  for (const auto &row : rows) {
    port().dom[0].status[2] = row.status;
    EXPECT_EQ(reported<uint32_t>(handle_0, 5584), row.mode) << int{row.status};
  }
}

TEST_F(hw_info, status_byte_0_is_reported_for_sub_port_1_only) {
  for (const uint8_t status : {0, 1, 255}) {
    port().dom[0].status[0] = port().dom[1].status[0] = status;
    EXPECT_EQ(reported<uint32_t>(handle_0, 5564), 0xEEEEEEEEu);
    EXPECT_EQ(reported<uint32_t>(handle_1, 5564), status != 0 ? 1u : 2u);
  }
}

TEST_F(hw_info, status_byte_1_is_0_or_1_in_one_byte) {
  for (const uint8_t status : {0, 1, 2, 255}) {
    port().dom[0].status[1] = status;
    EXPECT_EQ(reported<uint32_t>(handle_0, 5568), 0xEEEEEE00u | (status != 0 ? 1u : 0u));
  }
}

TEST_F(hw_info, module_alarms_are_added_to_ptahs_bitmap) {
  port().module_flags[4] = 0x03;
  EXPECT_EQ(reported<uint64_t>(handle_0, 40), 0x4000000000000005u);
  EXPECT_EQ(reported<uint64_t>(handle_1, 40), 0x8000000000000002u);
}

// Every bit of lower-page bytes 13 and 64.
TEST_F(hw_info, each_module_bit_raises_the_alarms_of_the_table) {
  for (uint32_t bit = 0; bit < 8; ++bit) {
    const auto flags = static_cast<uint8_t>(1u << bit);
    port().module_flags[4] = flags;
    port().module_flags[5] = 0;
    EXPECT_EQ(reported<uint64_t>(handle_0, 40) & 0x180004, (flags & 0x03) ? 0x4u : 0u) << bit;
    EXPECT_EQ(reported<uint64_t>(handle_1, 40) & 0x180004, (flags & 0x30) ? 0x4u : 0u) << bit;
    port().module_flags[4] = 0;
    port().module_flags[5] = flags;
    const uint64_t expected_0 = bit == 5 ? 0x80000 : bit == 4 ? 0x100000 : 0;
    const uint64_t expected_1 = bit == 1 ? 0x80000 : bit == 0 ? 0x100000 : 0;
    EXPECT_EQ(reported<uint64_t>(handle_0, 40) & 0x180004, expected_0) << bit;
    EXPECT_EQ(reported<uint64_t>(handle_1, 40) & 0x180004, expected_1) << bit;
  }
}

TEST_F(hw_info, other_module_flags_and_test_bits_raise_no_alarm) {
  for (const std::size_t flag : {0u, 1u, 2u, 3u, 6u, 7u}) port().module_flags[flag] = 0xFF;
  port().test[0].test_alarm_bits = ~uint64_t{0};
  EXPECT_EQ(reported<uint64_t>(handle_0, 40), 0x4000000000000001u);
}

TEST_F(hw_info, ptah_that_fails_leaves_only_the_modules_alarms) {
  port().module_flags[4] = 0x01;
  script.fail_always("ptah_al_get_all_from_ptah", 5);
  EXPECT_EQ(reported<uint64_t>(handle_0, 40), 0x4u);
  EXPECT_EQ(reported<uint32_t>(handle_0, 56), 0u);
  EXPECT_EQ(reported<uint32_t>(handle_0, 272), 0u);
}

TEST_F(hw_info, test_offsets_do_not_change_what_is_reported) {
  for (uint16_t &offset : port().test[0].pm_test_offsets) offset = 500;
  EXPECT_EQ(reported<uint32_t>(handle_0, 5608), 10000u);
}

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

TEST_F(hw_info, last_led_read_is_the_result) {
  // The port goes while its LED is read.
  lum_get_ctx()->platform_cbs.led_get_state = [](uint32_t at, uint32_t, uint32_t *) -> cerrno {
    lum_ports_db_remove_entry(at);
    return 5;
  };
  const uint32_t handle = handle_0;
  lum_hw_info_out record = {};
  EXPECT_EQ(lum_get_hw_info(1, &handle, &record), 22u);
  EXPECT_EQ(word_at<uint32_t>(record, 5548), 1u);
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
