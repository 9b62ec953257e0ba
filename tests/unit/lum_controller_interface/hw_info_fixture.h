// What tests of the hardware information have in common.
#pragma once

#include <cstring>
#include <vector>

#include "one_port.h"
#include "performance.h"

namespace support {

// What a report leaves alone shows as 0xEE.
inline lum_hw_info_out untouched_record() {
  lum_hw_info_out record;
  std::memset(&record, 0xEE, sizeof record);
  return record;
}

// Positions of bytes that differ.
inline std::vector<std::size_t> differences(const lum_hw_info_out &a, const lum_hw_info_out &b) {
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

}  // namespace support
