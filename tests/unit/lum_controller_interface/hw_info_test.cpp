// Hardware information: the whole record, byte by byte.
#include <gmock/gmock.h>

#include <cstring>
#include <string_view>

#include "hw_info_fixture.h"

namespace hw_info_test {

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A text field: cleared, then the text.
void put_field(lum_hw_info_out &record, std::size_t position, std::size_t size,
               std::string_view text) {
  auto *field = reinterpret_cast<uint8_t *>(&record) + position;
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), text.size());
}

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

// ---- Texts without an end ----

// Every byte of the identity is a letter of its own field: none may show up in another one.
TEST_F(hw_info, text_without_an_end_stays_within_its_field) {
  lum_vendor_info &vendor = port().vendor;
  const auto fill = [](auto &field, char letter) { std::memset(field, letter, sizeof field); };
  fill(vendor.vendor_name, 'n');
  fill(vendor.vendor_rev, 'r');
  fill(vendor.vendor_extra_code, 'c');
  fill(vendor.vendor_extra_id, 'i');
  fill(vendor.vendor_oui, 'o');
  fill(vendor.vendor_part_number, 'p');
  fill(vendor.vendor_serial_number, 's');
  fill(vendor.vendor_date_code, 'd');
  vendor.fw_version = 0x66666666;
  std::memset(vendor.reserved, 'x', sizeof vendor.reserved);
  const lum_hw_info_out record = report(handle_0);
  const auto text_at = [&](std::size_t position) {
    return std::string(reinterpret_cast<const char *>(&record) + position);
  };
  EXPECT_EQ(text_at(3480), std::string(16, 'n'));
  EXPECT_EQ(text_at(1944), "rr");
  EXPECT_EQ(text_at(5016), "cccc");
  EXPECT_EQ(text_at(4504), std::string(18, 'i'));
  EXPECT_EQ(text_at(2456), std::string(16, 'p'));
  EXPECT_EQ(text_at(1432), std::string(16, 's'));
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char *>(&record) + 5528, "dddddddd", 8), 0);
}

}  // namespace

}  // namespace hw_info_test
