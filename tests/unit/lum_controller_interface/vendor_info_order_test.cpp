// What a module says about itself: the order of the steps, bytes at the edges, and locks.
#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "vendor_info_fixture.h"

namespace vendor_info_order_test {

using namespace support;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The fields in which other threads see where an insertion or a removal has got to.
struct progress {
  std::string vendor_name;
  uint32_t fw_version;
  uint32_t transceiver_disabled;
  uint32_t inserted;
  uint32_t new_memmap;
  bool operator==(const progress &) const = default;
};
void PrintTo(const progress &each, std::ostream *out) {
  *out << '"' << each.vendor_name << "\" version " << each.fw_version << ", disabled "
       << each.transceiver_disabled << ", inserted " << each.inserted << ", new map "
       << each.new_memmap;
}
progress progress_of(const lum_port_data &port) {
  return {port.vendor.vendor_name, port.vendor.fw_version, port.transceiver_disabled, port.inserted,
          port.new_memmap};
}

class vendor_info_order : public vendor_info {
 protected:
  // How far the insertion is when it traces a line that begins so.
  static progress at(std::string_view beginning) {
    progress seen = {};
    at_trace = [&](const trace_line &line) {
      if (line.text.starts_with(beginning)) seen = progress_of(port());
    };
    EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
    at_trace = nullptr;
    return seen;
  }
};

// ---- Order ----

// As an earlier module, which was removed, could not have left it.
class insertion_order : public vendor_info_order {
 protected:
  void SetUp() override {
    vendor_info_order::SetUp();
    set_firmware(0, 6);
    lum::shared_store(port().transceiver_disabled, 1);
    lum::shared_store(port().inserted, 0);
    lum::shared_store(port().new_memmap, 1);
  }
};

TEST_F(insertion_order, module_is_accessible_first) {
  EXPECT_EQ(at("RSIP 0x30107 pluggable is inserted"), (progress{"", 0, 0, 1, 1}));
}

TEST_F(insertion_order, memory_map_is_the_old_one_once_the_texts_are_stored) {
  EXPECT_EQ(at("RSIP 0x30107 vendor name: "), (progress{"II-VI", 0, 0, 1, 0}));
}

TEST_F(insertion_order, ii_vi_has_its_memory_map_before_the_version_is_traced) {
  EXPECT_EQ(at("FW version stored"), (progress{"II-VI", 6, 0, 1, 1}));
}

TEST_F(insertion_order, accelink_has_its_memory_map_after_the_version_is_traced) {
  describe("ACCELINK", "1A", "SN12345");
  set_firmware('1', '7');
  EXPECT_EQ(at("FW version stored"), (progress{"ACCELINK", 0x107, 0, 1, 0}));
  EXPECT_EQ(port().new_memmap, 1u);
}

std::vector<progress> seen_by_the_led;

TEST_F(vendor_info_order, removal_turns_the_led_before_it_wipes_anything) {
  set_firmware(0, 6);
  ASSERT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  lum_get_ctx()->platform_cbs.led_set_state = [](uint32_t, uint32_t, uint32_t) -> cerrno {
    seen_by_the_led.push_back(progress_of(data_at(rsip)));
    return 0;
  };
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  const progress whole = {"II-VI", 6, 0, 1, 1};
  EXPECT_THAT(seen_by_the_led, ElementsAre(whole, whole));
}

// ---- Bytes ----

TEST_F(vendor_info_order, oui_is_not_trimmed) {
  module().put(0, 145, {0x41, 0x20, 0x20});
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_THAT(port().vendor.vendor_oui, ElementsAre(0x41, 0x20, 0x20));
}

TEST_F(vendor_info_order, vendor_is_judged_by_the_stored_name_not_by_the_raw_text) {
  module().put_text(0, 129, "0123456789ABII-V");
  module().put_text(0, 145, "I");
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_STREQ(port().vendor.vendor_name, "0123456789ABII-V");
  EXPECT_THAT(traces(), Contains(info(151, "RSIP 0x30107 vendor is ACCELINK\n")));
}

TEST_F(vendor_info_order, high_firmware_byte_that_cannot_be_read_is_0) {
  describe("ACCELINK", "1A", "SN12345");
  set_firmware('1', '7');
  script.fail_first("i2c_read_byte", 5, 5);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_EQ(port().vendor.fw_version, 0x37u);
  EXPECT_EQ(port().new_memmap, 0u);
}

TEST_F(vendor_info_order, low_firmware_byte_that_cannot_be_read_is_0) {
  describe("ACCELINK", "1A", "SN12345");
  set_firmware('1', '7');
  for (unsigned nth = 2; nth <= 6; ++nth) script.fail("i2c_read_byte", nth, 5);
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_EQ(port().vendor.fw_version, 0xFFFFFFD0u);
  EXPECT_EQ(port().new_memmap, 1u);
}

// ---- Racks and locks ----

using other_racks = running_library;

TEST_F(other_racks, module_of_another_rack_cannot_be_read) {
  lum_port_data &port = add_port(0x01030107).data;
  lum::shared_store(port.new_memmap, 1);
  clear_record();
  EXPECT_EQ(lum_update_vendor_info(0x01030107, 1), 0u);
  const auto unknown = error(114, "Port not found in DB for rsip=0x30107\n");
  EXPECT_THAT(traces(), lines_in_order({unknown, unknown, unknown, unknown,
                                        info(147, "[0x1030107] new memmap: 0\n")}));
  EXPECT_THAT(calls({"i2c_read_block", "i2c_read_byte"}), IsEmpty());
  EXPECT_EQ(progress_of(port), (progress{"", 0, 0, 1, 0}));
  EXPECT_STREQ(port.vendor.vendor_serial_number, "");
}

TEST_F(vendor_info_order, no_lock_of_the_port_is_taken) {
  watch(port().port_mutex, "port");
  script.fail("led_get_state", 1, 5);
  uint32_t state = 0;
  EXPECT_EQ(lum_update_vendor_info(rsip, 1), 0u);
  EXPECT_EQ(lum_update_vendor_info(rsip, 0), 0u);
  EXPECT_EQ(lum_optics_led_get_state(rsip, 0, &state), 0u);
  EXPECT_EQ(state, 3u);
  EXPECT_THAT(calls({"pthread_mutex_trylock", "pthread_mutex_lock", "pthread_mutex_unlock"}),
              IsEmpty());
}

}  // namespace

}  // namespace vendor_info_order_test
