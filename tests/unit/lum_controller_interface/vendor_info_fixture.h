// What the tests of the vendor information share.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <string_view>

#include "base/shared.h"
#include "library.h"

// A port whose module is described, but not looked at yet.
class vendor_info : public support::running_library {
 protected:
  static constexpr uint32_t rsip = 0x30107;

  void SetUp() override {
    support::running_library::SetUp();
    support::add_port(rsip);
    describe("II-VI", "1A", "SN12345");
    support::clear_record();
  }
  static support::module_memory &module() { return support::modules.at(3, 1, 7); }
  static lum_port_data &port() { return support::data_at(rsip); }
  static std::string padded(std::string_view text, std::size_t size) {
    std::string field(text);
    field.resize(size, ' ');
    return field;
  }
  static void describe(std::string_view vendor, std::string_view revision,
                       std::string_view serial) {
    module().put_text(0, 129, padded(vendor, 16));
    module().put(0, 145, {0x00, 0x1D, 0xC4});
    module().put_text(0, 148, padded("PART-9", 16));
    module().put_text(0, 164, padded(revision, 2));
    module().put_text(0, 166, padded(serial, 16));
    module().put_text(0, 182, padded("240131", 8));
    module().put_text(3, 148, padded("EX", 4));
    module().put_text(3, 192, padded("EXTRA ID", 18));
  }
  static void set_firmware(uint8_t hi, uint8_t lo) { module().put(0, 39, {hi, lo}); }
};
