// What the module says about itself.
#include <array>
#include <cerrno>
#include <cstring>

#include "base/shared.h"
#include "base/trace.h"
#include "bounded_copy.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

// The upper half of a page, and a NUL behind it, so that its texts have an end.
constexpr std::size_t page_half = 128;
using upper_page = std::array<std::uint8_t, page_half + 1>;

template <std::size_t Offset>
const char *text_at(const upper_page &page) {
  static_assert(Offset >= page_half && Offset < 2 * page_half, "not in the upper half of a page");
  return reinterpret_cast<const char *>(page.data()) + (Offset - page_half);
}

// Reads the module; failed reads leave zeros.
struct identity {
  upper_page page_0 = {};
  upper_page page_3 = {};
  std::uint8_t fw_hi = 0;
  std::uint8_t fw_lo = 0;
};
void read_identity(std::uint32_t rsip, identity &module);
void store_identity(lum_vendor_info &vendor, const identity &module);
void judge_firmware(std::uint32_t rsip, lum_port_data &port, const identity &module);

}  // namespace

cerrno lum_update_vendor_info(std::uint32_t rsip, std::int32_t inserted) {
  ports_reader reader;
  lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) return EINVAL;
  lum_port_data &port = node->data;
  LUM_INFO(140, "vendor info to be updated for rsip: 0x%x inserted:%d\n", rsip,
           inserted == 1 ? 1 : 0);
  LUM_INFO(141, "rsip: 0x%x port_data:0%p\n", rsip, static_cast<const void *>(&port));
  if (inserted != 0) {
    shared_store(port.transceiver_disabled, 0);
    shared_store(port.inserted, 1);
    LUM_INFO(142, "RSIP 0x%x pluggable is inserted\n", rsip);
    identity module;
    read_identity(rsip, module);
    LUM_INFO(143, "rsip: 0x%x vendor name src:%s", rsip, text_at<129>(module.page_0));
    LUM_INFO(144, "rsip: 0x%x vendor sn src:%s", rsip, text_at<166>(module.page_0));
    store_identity(port.vendor, module);
    LUM_INFO(145, "rsip: 0x%x vendor name-2 src:%s", rsip, text_at<129>(module.page_0));
    LUM_INFO(146, "rsip: 0x%x vendor sn-2 src:%s", rsip, text_at<166>(module.page_0));
    judge_firmware(rsip, port, module);
  } else {
    lum_optics_led_set_state(rsip, 0, LUM_LED_FAULT);
    shared_clear(&port.vendor, sizeof port.vendor);
    shared_store(port.transceiver_disabled, 1);
    shared_store(port.inserted, 0);
    shared_store(port.new_memmap, 0);
  }
  LUM_INFO(147, "[0x%x] new memmap: %d\n", rsip, shared_load(port.new_memmap));
  return 0;
}

namespace {

void read_identity(std::uint32_t rsip, identity &module) {
  const auto read = [&](std::uint32_t page, std::uint32_t offset, std::int32_t length,
                        std::uint8_t *buffer) {
    lum_i2c_read_write(module_read, slot_in(rsip), instance_in(rsip), port_in(rsip), page, offset,
                       length, buffer);
  };
  read(3, 128, page_half, module.page_3.data());
  read(0, 128, page_half, module.page_0.data());
  read(0, 39, 1, &module.fw_hi);
  read(0, 40, 1, &module.fw_lo);
}

// Copies a text of the module into a field, which may lack room for the terminator.
template <std::size_t Characters, std::size_t Size>
void store_text(char (&field)[Size], const char *source) {
  char text[Characters + 1] = {};
  strncpy_s(text, sizeof text, source, Characters);
  lum_trim_trailing_spaces(text, Characters);
  static_assert(Size == Characters || Size == Characters + 1);
  shared_write(field, text, Size);
}

void store_identity(lum_vendor_info &vendor, const identity &module) {
  store_text<16>(vendor.vendor_name, text_at<129>(module.page_0));
  store_text<2>(vendor.vendor_rev, text_at<164>(module.page_0));
  store_text<4>(vendor.vendor_extra_code, text_at<148>(module.page_3));
  store_text<18>(vendor.vendor_extra_id, text_at<192>(module.page_3));
  shared_write(vendor.vendor_oui, text_at<145>(module.page_0), sizeof vendor.vendor_oui);
  store_text<16>(vendor.vendor_part_number, text_at<148>(module.page_0));
  store_text<16>(vendor.vendor_serial_number, text_at<166>(module.page_0));
  store_text<8>(vendor.vendor_date_code, text_at<182>(module.page_0));
}

// The vendor and the firmware decide which memory map the module uses. Whoever is not II-VI is
// taken for the other supported vendor, whose newer modules give the version in ASCII digits.
void judge_firmware(std::uint32_t rsip, lum_port_data &port, const identity &module) {
  constexpr std::uint32_t last_old_iivi = 5;
  constexpr std::uint32_t last_old_accelink = 262;  // 1.06
  constexpr std::uint32_t digit_0 = 0x30;
  shared_store(port.new_memmap, 0);
  lum_vendor_info vendor = shared_copy(port.vendor);
  vendor.vendor_name[sizeof vendor.vendor_name - 1] = '\0';
  LUM_INFO(148, "RSIP 0x%x vendor name: %s\n", rsip, vendor.vendor_name);
  const std::uint32_t hi = module.fw_hi;
  const std::uint32_t lo = module.fw_lo;
  std::uint32_t version = hi << 8 | lo;
  if (std::strstr(vendor.vendor_name, "II-VI") != nullptr) {
    LUM_INFO(149, "RSIP 0x%x vendor is II-VI/coherent\n", rsip);
    shared_store(port.vendor.fw_version, version);
    shared_store(port.new_memmap, version > last_old_iivi ? 1 : 0);
    LUM_INFO(150, "FW version stored is 0x%x\n", version);
    return;
  }
  LUM_INFO(151, "RSIP 0x%x vendor is ACCELINK\n", rsip);
  if (hi >= digit_0) version = (hi - digit_0) << 8 | (lo - digit_0);
  shared_store(port.vendor.fw_version, version);
  LUM_INFO(152, "FW version stored is 0x%x\n", version);
  shared_store(port.new_memmap, version > last_old_accelink ? 1 : 0);
}

}  // namespace
