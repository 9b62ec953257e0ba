// What a module says about itself.
#include <gmock/gmock.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "vendor_info_fixture.h"

namespace vendor_info_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string port_data_line(const lum_port_data &port) {
  char text[80];
  std::snprintf(text, sizeof text, "rsip: 0x30107 port_data:0%p\n",
                static_cast<const void *>(&port));
  return text;
}

// ---- Insertion ----

TEST_F(vendor_info, unknown_port_is_22_without_a_trace) {
  EXPECT_EQ(lum_update_vendor_info(rsip + 1, 1), 22u);
  EXPECT_EQ(lum_update_vendor_info(rsip + 1, 0), 22u);
  EXPECT_THAT(traces(), IsEmpty());
  EXPECT_THAT(calls({"i2c_read_block", "led_set_state"}), IsEmpty());
}

TEST_F(vendor_info, insertion_reads_page_3_page_0_and_the_two_firmware_bytes) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_THAT(
      calls({"i2c_read_block", "i2c_read_byte", "i2c_write_byte"}),
      ElementsAre("i2c_read_block(3, 1, 7, 3, 128, 128)", "i2c_read_block(3, 1, 7, 0, 128, 128)",
                  "i2c_read_byte(3, 1, 7, 0, 39)", "i2c_read_byte(3, 1, 7, 0, 40)"));
}

TEST_F(vendor_info, insertion_fills_every_field_trimmed) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  const lum_vendor_info &vendor = port().vendor;
  EXPECT_STREQ(vendor.vendor_name, "II-VI");
  EXPECT_STREQ(vendor.vendor_rev, "1A");
  EXPECT_STREQ(vendor.vendor_extra_code, "EX");
  EXPECT_STREQ(vendor.vendor_extra_id, "EXTRA ID");
  EXPECT_THAT(vendor.vendor_oui, ElementsAre(0x00, 0x1D, 0xC4));
  EXPECT_STREQ(vendor.vendor_part_number, "PART-9");
  EXPECT_STREQ(vendor.vendor_serial_number, "SN12345");
  EXPECT_STREQ(vendor.vendor_date_code, "240131");
  EXPECT_EQ(port().inserted, 1u);
  EXPECT_EQ(port().transceiver_disabled, 0u);
}

TEST_F(vendor_info, fields_that_fill_their_width_are_kept_whole) {
  module().put_text(0, 129, "ABCDEFGHIJKLMNOP");
  module().put_text(0, 148, "0123456789abcdef");
  module().put_text(0, 166, "SERIALSERIALSERI");
  module().put_text(0, 182, "20240131");
  module().put_text(3, 148, "WXYZ");
  module().put_text(3, 192, "012345678901234567");
  set_firmware(1, 2);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  const lum_vendor_info &vendor = port().vendor;
  EXPECT_STREQ(vendor.vendor_name, "ABCDEFGHIJKLMNOP");
  EXPECT_STREQ(vendor.vendor_part_number, "0123456789abcdef");
  EXPECT_STREQ(vendor.vendor_serial_number, "SERIALSERIALSERI");
  EXPECT_EQ(std::string_view(vendor.vendor_date_code, 8), "20240131");
  EXPECT_STREQ(vendor.vendor_extra_code, "WXYZ");
  EXPECT_STREQ(vendor.vendor_extra_id, "012345678901234567");
  EXPECT_EQ(vendor.fw_version, 0x102u);
}

TEST_F(vendor_info, spaces_in_front_of_a_nul_stay) {
  module().put_text(0, 129, std::string_view("AB  \0           ", 16));
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "AB  ");
}

TEST_F(vendor_info, field_of_spaces_is_empty) {
  describe("", "", "");
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "");
  EXPECT_STREQ(port().vendor.vendor_rev, "");
  EXPECT_STREQ(port().vendor.vendor_serial_number, "");
}

TEST_F(vendor_info, insertion_allows_the_transfers_before_it_makes_them) {
  lum::shared_store(port().transceiver_disabled, 1);
  lum::shared_store(port().inserted, 0);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "II-VI");
  EXPECT_EQ(port().transceiver_disabled, 0u);
  EXPECT_EQ(port().inserted, 1u);
}

TEST_F(vendor_info, insertion_of_a_ii_vi_module_is_traced) {
  set_firmware(0x00, 0x06);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  // The raw texts run on to the first NUL: here that of the OUI, and that behind the date code.
  const std::string serial = "SN12345         240131  ";
  EXPECT_THAT(
      traces(),
      ElementsAre(info("vendor info to be updated for rsip: 0x30107 inserted:1\n")
                      .of("lum_controller_interface"),
                  info(port_data_line(port())), info("RSIP 0x30107 pluggable is inserted\n"),
                  info("rsip: 0x30107 vendor name src:" + padded("II-VI", 16)),
                  info("rsip: 0x30107 vendor sn src:" + serial),
                  info("rsip: 0x30107 vendor name-2 src:" + padded("II-VI", 16)),
                  info("rsip: 0x30107 vendor sn-2 src:" + serial),
                  info("RSIP 0x30107 vendor name: II-VI\n"),
                  info("RSIP 0x30107 vendor is II-VI/coherent\n"),
                  info("FW version stored is 0x6\n"), info("[0x30107] new memmap: 1\n")));
}

TEST_F(vendor_info, insertion_of_another_module_is_traced_as_accelink) {
  describe("SOMEBODY", "1", "S1");
  set_firmware('1', '7');
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_THAT(traces(), lines_in_order({info("RSIP 0x30107 vendor name: SOMEBODY\n"),
                                        info("RSIP 0x30107 vendor is ACCELINK\n"),
                                        info("FW version stored is 0x107\n"),
                                        info("[0x30107] new memmap: 1\n")}));
}

TEST_F(vendor_info, inserted_is_shown_as_1_only_when_it_is_1) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 2), 0u);
  EXPECT_THAT(traces(), Contains(info("vendor info to be updated for rsip: 0x30107 inserted:0\n")));
  EXPECT_EQ(port().inserted, 1u);
}

TEST_F(vendor_info, raw_texts_without_an_end_stop_at_the_pages_end) {
  for (uint32_t offset = 128; offset < 256; ++offset) module().put(0, offset, {'x'});
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_THAT(traces(), Contains(info("rsip: 0x30107 vendor name src:" + std::string(127, 'x'))));
  EXPECT_THAT(traces(), Contains(info("rsip: 0x30107 vendor sn-2 src:" + std::string(90, 'x'))));
  EXPECT_STREQ(port().vendor.vendor_name, "xxxxxxxxxxxxxxxx");
}

TEST_F(vendor_info, any_bytes_are_taken) {
  for (uint32_t offset = 128; offset < 256; ++offset) {
    module().put(0, offset, {0xFF});
    module().put(3, offset, {0xFF});
  }
  set_firmware(0xFF, 0xFF);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_EQ(std::string(port().vendor.vendor_name), std::string(16, '\xFF'));
  EXPECT_EQ(port().vendor.fw_version, 0xCFCFu);
}

// ---- Firmware and memory map ----

struct firmware_case {
  const char *vendor;
  uint8_t hi;
  uint8_t lo;
  uint32_t version;
  uint32_t new_memmap;
};
void PrintTo(const firmware_case &each, std::ostream *out) {
  *out << each.vendor << " " << int{each.hi} << " " << int{each.lo};
}

class firmware : public vendor_info, public testing::WithParamInterface<firmware_case> {};

TEST_P(firmware, decides_the_memory_map) {
  describe(GetParam().vendor, "1", "S");
  set_firmware(GetParam().hi, GetParam().lo);
  lum::shared_store(port().new_memmap, 1 - GetParam().new_memmap);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_EQ(port().vendor.fw_version, GetParam().version);
  EXPECT_EQ(port().new_memmap, GetParam().new_memmap);
}

INSTANTIATE_TEST_SUITE_P(ii_vi, firmware,
                         testing::Values(firmware_case{"II-VI", 0x00, 0x06, 6, 1},
                                         firmware_case{"II-VI", 0x00, 0x05, 5, 0},
                                         firmware_case{"II-VI", 0x01, 0x00, 0x100, 1},
                                         firmware_case{"II-VI", '1', '7', 0x3137, 1},
                                         firmware_case{"THE II-VI INC", 0x00, 0x06, 6, 1}));

INSTANTIATE_TEST_SUITE_P(others, firmware,
                         testing::Values(firmware_case{"ACCELINK", '1', '0', 0x100, 0},
                                         firmware_case{"ACCELINK", '1', '7', 0x107, 1},
                                         firmware_case{"ACCELINK", '1', '6', 0x106, 0},
                                         firmware_case{"ACCELINK", 0x01, 0x07, 0x107, 1},
                                         firmware_case{"ACCELINK", 0x01, 0x06, 0x106, 0},
                                         firmware_case{"ACCELINK", 0x2F, 0x00, 0x2F00, 1},
                                         firmware_case{"ACCELINK", 0x30, 0x30, 0, 0},
                                         firmware_case{"ACCELINK", '1', 0x2F, 0xFFFFFFFF, 1},
                                         firmware_case{"ACCELINK", '0', 0x00, 0xFFFFFFD0, 1},
                                         firmware_case{"ii-vi", 0x00, 0x06, 6, 0},
                                         firmware_case{"", '2', '0', 0x200, 1}));

// ---- Modules that cannot be read ----

TEST_F(vendor_info, module_that_cannot_be_read_has_empty_texts_and_is_taken_for_the_other_vendor) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  module().fail_transfers(5);
  clear_record();
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  const lum_vendor_info &vendor = port().vendor;
  EXPECT_STREQ(vendor.vendor_name, "");
  EXPECT_STREQ(vendor.vendor_serial_number, "");
  EXPECT_STREQ(vendor.vendor_extra_id, "");
  EXPECT_THAT(vendor.vendor_oui, ElementsAre(0, 0, 0));
  EXPECT_EQ(vendor.fw_version, 0u);
  EXPECT_EQ(port().new_memmap, 0u);
  EXPECT_EQ(port().inserted, 1u);
  EXPECT_THAT(traces(),
              lines_in_order({error(116, "Read failed for page 3 offset 80 for 1/7 rc 5\n"),
                              error(116, "Read failed for page 0 offset 80 for 1/7 rc 5\n"),
                              error(116, "Read failed for page 0 offset 27 for 1/7 rc 5\n"),
                              error(116, "Read failed for page 0 offset 28 for 1/7 rc 5\n"),
                              info("RSIP 0x30107 vendor is ACCELINK\n")}));
}

TEST_F(vendor_info, failed_reads_bytes_are_used_as_they_are) {
  module().leave_on_failure('A');
  module().fail_transfers(5);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "AAAAAAAAAAAAAAAA");
  EXPECT_EQ(port().vendor.fw_version, 0x1111u);
}

TEST_F(vendor_info, one_failed_page_leaves_the_other_ones_fields) {
  script.fail_first("i2c_read_block", 5, 5);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "II-VI");
  EXPECT_STREQ(port().vendor.vendor_extra_code, "");
  EXPECT_STREQ(port().vendor.vendor_extra_id, "");
}

TEST_F(vendor_info, empty_cage_is_tolerated) {
  modules.remove(3, 1, 7);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "");
}

TEST_F(vendor_info, without_read_callbacks_nothing_is_known) {
  lum_get_ctx()->platform_cbs.i2c_read_block = nullptr;
  lum_get_ctx()->platform_cbs.i2c_read_byte = nullptr;
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "");
  EXPECT_EQ(port().vendor.fw_version, 0u);
}

// ---- Removal ----

class module_removal : public vendor_info {
 protected:
  void SetUp() override {
    vendor_info::SetUp();
    set_firmware(0, 6);
    ASSERT_EQ(lum_update_vendor_info(rsip, 1), 0u);
    ASSERT_EQ(port().new_memmap, 1u);
    clear_record();
  }
};

TEST_F(module_removal, sets_led_3_and_wipes_the_identity) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  EXPECT_THAT(calls({"led_set_state"}),
              ElementsAre("led_set_state(0x30107, 0, 0)", "led_set_state(0x30107, 0, 3)"));
  EXPECT_EQ(port().led_state, 3u);
  const lum_vendor_info zero = {};
  EXPECT_EQ(std::memcmp(&port().vendor, &zero, sizeof zero), 0);
  EXPECT_EQ(port().transceiver_disabled, 1u);
  EXPECT_EQ(port().inserted, 0u);
  EXPECT_EQ(port().new_memmap, 0u);
}

TEST_F(module_removal, clears_the_whole_span_and_nothing_behind_it) {
  std::memset(static_cast<void *>(&port().vendor), 0x77, sizeof port().vendor);
  port().dom[0].readings[0] = 0x7777;
  port().device_id[1].ifname[LUM_DEVID_NAME_SIZE - 1] = 0x77;
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  const lum_vendor_info zero = {};
  EXPECT_EQ(std::memcmp(&port().vendor, &zero, sizeof zero), 0);
  EXPECT_EQ(port().dom[0].readings[0], 0x7777);
  EXPECT_EQ(port().device_id[1].ifname[LUM_DEVID_NAME_SIZE - 1], 0x77);
}

TEST_F(module_removal, makes_later_transfers_return_2_until_the_next_insertion) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  uint8_t byte = 0;
  EXPECT_EQ(lum_i2c_read_write(1, 3, 1, 7, 0, 39, 1, &byte), 2u);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_EQ(lum_i2c_read_write(1, 3, 1, 7, 0, 39, 1, &byte), 0u);
}

TEST_F(module_removal, is_traced) {
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  EXPECT_THAT(traces(),
              ElementsAre(info("vendor info to be updated for rsip: 0x30107 inserted:0\n"),
                          info(port_data_line(port())), info("[0x30107] new memmap: 0\n")));
  EXPECT_THAT(calls({"i2c_read_block", "i2c_read_byte"}), IsEmpty());
}

TEST_F(module_removal, failing_led_does_not_stop_it) {
  script.fail_always("led_set_state", 5);
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  EXPECT_EQ(port().led_state, 3u);
  EXPECT_EQ(port().inserted, 0u);
}

// ---- The span ----

TEST(vendor_span, has_196_bytes_and_the_fields_in_order) {
  EXPECT_EQ(sizeof(lum_vendor_info), 196u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_name), 0u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_rev), 17u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_extra_code), 20u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_extra_id), 25u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_oui), 44u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_part_number), 47u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_serial_number), 64u);
  EXPECT_EQ(offsetof(lum_vendor_info, vendor_date_code), 81u);
  EXPECT_EQ(offsetof(lum_vendor_info, fw_version), 92u);
}

}  // namespace

}  // namespace vendor_info_test
