// The hardware state of ports, reported from what the polling thread has stored, and the sweep of a
// new port.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/bytes.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_ports_db/lum_ports_db.h"
#include "ptah.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

// One port's output record.
using hw_report = record_of<LUM_HW_INFO_OUT_SIZE>;

cerrno report(const lum_port_node_info &node, std::uint32_t ifhandle, hw_report record);
void report_alarms(const lum_port_data &port, std::uint32_t sub_port, hw_report record);
void report_identity(const lum_port_data &port, hw_report record);
void report_readings(const lum_port_data &port, std::uint32_t sub_port, hw_report record);

}  // namespace

cerrno lum_get_hw_info(std::int32_t count, const std::uint32_t *ifhandles,
                       lum_hw_info_out *records) {
  LUM_INFO(130, "num_count %d\n", count);
  if (ifhandles == nullptr || records == nullptr) {
    LUM_ERROR(131, "Invalid i/p params in retrieve hw info cb fn");
    return EINVAL;
  }
  if (count < 1) {
    LUM_ERROR(132, "Invalid count in retrieve hw cb");
    return EINVAL;
  }
  ports_reader reader;
  cerrno rc = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    std::uint32_t rsip = 0;
    if (lum_ports_db_get_rsip_from_ifh(ifhandles[i], &rsip) != 0) return EINVAL;
    const lum_port_node_info *node = find_port(rsip);
    if (node == nullptr) return EINVAL;
    rc = report(*node, ifhandles[i], bytes_of(records[i]));
  }
  return rc;
}

cerrno lum_fill_initial_hw_info(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                                std::uint32_t count, const std::uint32_t *ports) {
  cerrno rc = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    rc = lum_module_sweep_hw_status(lum_get_ctx()->restart, rack, slot, instance, ports[i]);
  }
  return rc;
}

cerrno lum_module_sweep_hw_status(std::uint32_t restart, std::uint32_t rack, std::uint32_t slot,
                                  std::uint32_t instance, std::uint32_t port) {
  LUM_INFO(133, "entry\n");
  for (const lum_port_node_info &node : all_ports()) {
    if (!stands_at(node.data, rack, slot, instance, port)) continue;
    lum_plat_is_optics_inserted(static_cast<std::int32_t>(slot),
                                static_cast<std::int32_t>(instance),
                                static_cast<std::int32_t>(port));
    std::uint32_t port_handle = 0;
    if (lum_ports_db_rsip2port_handle(node.rsip, &port_handle) != 0) {
      LUM_ERROR(134, "port handle lookup failed for rsip: 0x%x\n", node.rsip);
      return EINVAL;
    }
    if (restart != 0) {
      LUM_INFO(135, "sweep hw info on restart sucess for rsip:  0x%x port_handle:0x%x\n", node.rsip,
               port_handle);
    } else {
      LUM_INFO(136, "cold start for rsip:  0x%x port_handle:0x%x\n", node.rsip, port_handle);
    }
  }
  return 0;
}

cerrno lum_platform_init(event_manager, std::uint32_t) {
  LUM_INFO(137, "Inside LUM Platform Init\n");
  return 0;
}

void lum_module_unavailable(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                            std::uint32_t count, const std::uint32_t *ports) {
  for (std::uint32_t i = 0; i < count; ++i) {
    LUM_INFO(138, "module unvailable for r: s: i: p: %d/%d/%d/%d\n", rack, slot, instance,
             ports[i]);
  }
}

cerrno lum_deinit_port(std::uint32_t rack, std::uint32_t slot, std::uint32_t instance,
                       std::uint32_t count, const std::uint32_t *ports) {
  cerrno rc = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    rc = LUM_INFO(139, " delete port (%d %d %d %d)\n", rack, slot, instance, ports[i]);
  }
  return rc;
}

cerrno lum_module_get_hw_status() { return 0; }

namespace {

// A port without a module reports its LED only.
cerrno report(const lum_port_node_info &node, std::uint32_t ifhandle, hw_report record) {
  const lum_port_data &port = node.data;
  auto led = get<LUM_HW_OUT_LED, std::uint32_t>(record);
  const cerrno rc = lum_optics_led_get_state(node.rsip, 0, &led);
  put<LUM_HW_OUT_LED, std::uint32_t>(record, led);
  put<LUM_HW_OUT_LED_VALID, std::uint32_t>(record, 1);
  const bool present = shared_load(port.inserted) != 0;
  put<LUM_HW_OUT_PRESENT, std::uint32_t>(record, present ? 1 : 0);
  if (!present) return rc;

  const std::uint32_t sub_port = sub_port_of(port, ifhandle);
  put<LUM_HW_OUT_KIND, std::uint32_t>(record, 83);
  report_alarms(port, sub_port, record);
  report_identity(port, record);
  report_readings(port, sub_port, record);
  return rc;
}

void report_alarms(const lum_port_data &port, std::uint32_t sub_port, hw_report record) {
  ptah_al_all all = {};
  ptah_al_get_all_from_ptah(shared_load(port.sub_port[sub_port].ifhandle), &all);
  put<LUM_HW_OUT_ALARMS, std::uint64_t>(record, all.bitmap | module_alarms(port, sub_port));
  std::memcpy(record.subspan<LUM_HW_OUT_PTAH_VALUES, sizeof all.values>().data(), all.values,
              sizeof all.values);
}

// The field is cleared first; a text that is longer than the field is cut.
template <std::size_t Position>
void put_text(hw_report record, std::string_view text) {
  const auto field = record.subspan<Position, LUM_HW_OUT_TEXT_SIZE>();
  std::ranges::fill(field, std::uint8_t{0});
  text.copy(reinterpret_cast<char *>(field.data()), field.size() - 1);
}

// The text of a field whose last byte is its terminator's place, whatever stands there.
template <std::size_t Size>
std::string_view text_in(const char (&field)[Size]) {
  return {field, strnlen(field, Size - 1)};
}

void report_identity(const lum_port_data &port, hw_report record) {
  const lum_vendor_info vendor = shared_copy(port.vendor);
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "Firmware Version \t: %u.%02u",
                vendor.fw_version >> 8 & 0xFF, vendor.fw_version & 0xFF);
  put_text<LUM_HW_OUT_FIRMWARE>(record, text.data());
  std::snprintf(text.data(), text.size(), "%02x.%02x.%02x", vendor.vendor_oui[0],
                vendor.vendor_oui[1], vendor.vendor_oui[2]);
  put_text<LUM_HW_OUT_OUI>(record, text.data());
  put_text<LUM_HW_OUT_SERIAL_NUMBER>(record, text_in(vendor.vendor_serial_number));
  put_text<LUM_HW_OUT_REVISION>(record, text_in(vendor.vendor_rev));
  put_text<LUM_HW_OUT_PART_NUMBER>(record, text_in(vendor.vendor_part_number));
  put_text<LUM_HW_OUT_VENDOR_NAME>(record, text_in(vendor.vendor_name));
  put_text<LUM_HW_OUT_EXTRA_ID>(record, text_in(vendor.vendor_extra_id));
  put_text<LUM_HW_OUT_EXTRA_CODE>(record, text_in(vendor.vendor_extra_code));

  const auto date = record.subspan<LUM_HW_OUT_DATE_CODE, sizeof vendor.vendor_date_code>();
  std::ranges::fill(date, std::uint8_t{0});
  std::memcpy(date.data(), vendor.vendor_date_code,
              strnlen(vendor.vendor_date_code, sizeof vendor.vendor_date_code));
}

// The mode as the module gives it back: 2 means 3, any other but 0 means 2.
std::uint32_t reported_mode(std::uint8_t status) { return status == 0 ? 0 : status == 2 ? 3 : 2; }

void report_readings(const lum_port_data &port, std::uint32_t sub_port, hw_report record) {
  const lum_dom_area &dom = port.dom[sub_port];
  put<LUM_HW_OUT_TEMPERATURE, std::int32_t>(record,
                                            shared_load(port.module_temperature) * 100 / 256);
  put<LUM_HW_OUT_SUPPLY, std::uint32_t>(record, shared_load(port.module_word_16) / 100u);
  put<LUM_HW_OUT_READING_4, std::uint16_t>(
      record, static_cast<std::uint16_t>(shared_load(dom.readings[4]) / 10));
  std::uint16_t valid = 0x2 | 0x40;
  if (sub_port == 1) {
    valid |= 0x20;
    put<LUM_HW_OUT_STATUS_0, std::uint32_t>(record, shared_load(dom.status[0]) != 0 ? 1 : 2);
  }
  put<LUM_HW_OUT_STATUS_1, std::uint8_t>(record, shared_load(dom.status[1]) != 0 ? 1 : 0);
  put<LUM_HW_OUT_VALID, std::uint16_t>(record, valid);
  put<LUM_HW_OUT_MODE, std::uint32_t>(record, reported_mode(shared_load(dom.status[2])));
  put<LUM_HW_OUT_POWER_2, std::uint32_t>(record, power_of(shared_load(dom.readings[2])));
  put<LUM_HW_OUT_POWER_1, std::uint32_t>(record, power_of(shared_load(dom.readings[1])));
  put<LUM_HW_OUT_POWER_0, std::uint32_t>(record, power_of(shared_load(dom.readings[0])));
}

}  // namespace
