// Configuration on its way into the modules.
#include <array>
#include <cerrno>
#include <mutex>

#include "base/bytes.h"
#include "base/locks.h"
#include "base/shared.h"
#include "base/trace.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_controller_interface/port_cfg_lock.h"
#include "lum_ports_db/lum_ports_db.h"

using namespace lum;

static constexpr char trace_area[] = "lum_controller_interface";

namespace {

// Where a sub-port's settings are. Those on the layout page are given for page 3.
struct setting_places {
  std::uint32_t upper_threshold;  // page 2, 16 bits
  std::uint32_t lower_threshold;  // page 2, 16 bits
  std::uint32_t p2_setting;       // page 2, 16 bits
  std::uint32_t setting_a;        // layout page, 16 bits
  std::uint32_t setting_b;        // layout page, 16 bits
  std::uint32_t enable_flag;      // layout page, bit 0
  std::uint32_t mode;             // layout page
};
constexpr setting_places places_of[LUM_SUB_PORTS] = {
    {.upper_threshold = 144,
     .lower_threshold = 146,
     .p2_setting = 194,
     .setting_a = 134,
     .setting_b = 136,
     .enable_flag = 147,
     .mode = 133},
    {.upper_threshold = 152,
     .lower_threshold = 154,
     .p2_setting = 178,
     .setting_a = 129,
     .setting_b = 131,
     .enable_flag = 146,
     .mode = 128},
};
constexpr std::uint32_t sub1_flag_at = 150;  // layout page, bit 0
constexpr std::uint32_t threshold_page = 2;
constexpr std::uint32_t threshold_distance = 100;  // between the two thresholds

// One module's memory, written byte by byte; what a write answers is not looked at.
class module_writer {
 public:
  explicit module_writer(const lum_port_data &port)
      : port_(port), new_memmap_(shared_load(port.new_memmap) != 0) {}

  void byte(std::uint32_t page, std::uint32_t offset, std::uint32_t value) const {
    auto low = static_cast<std::uint8_t>(value);
    lum_i2c_read_write(module_write, port_.slot, port_.instance, port_.port, page, offset, 1, &low);
  }
  // High byte first, at the lower offset.
  void word(std::uint32_t page, std::uint32_t offset, std::uint32_t value) const {
    byte(page, offset, value >> 8);
    byte(page, offset + 1, value);
  }
  void layout_byte(std::uint32_t offset, std::uint32_t value) const {
    byte(layout_page(), layout_offset(offset), value);
  }
  void layout_word(std::uint32_t offset, std::uint32_t value) const {
    word(layout_page(), layout_offset(offset), value);
  }
  std::int16_t read_word(std::uint32_t page, std::uint32_t offset) const {
    std::array<std::uint8_t, 2> bytes = {};
    lum_i2c_read_write(module_read, port_.slot, port_.instance, port_.port, page, offset,
                       static_cast<std::int32_t>(bytes.size()), bytes.data());
    return static_cast<std::int16_t>(get_be16(bytes, 0));
  }

 private:
  std::uint32_t layout_page() const { return new_memmap_ ? 1 : 3; }
  std::uint32_t layout_offset(std::uint32_t offset) const {
    return new_memmap_ ? offset + 64 : offset;
  }

  const lum_port_data &port_;
  bool new_memmap_;
};

void take_over(lum_port_data &port, std::uint32_t sub_port, const lum_hw_info_in &record,
               std::uint64_t changed_bits);
void write_changes(const lum_port_data &port, std::uint32_t sub_port, std::uint64_t changed_bits);
void write_threshold(const module_writer &module, const lum_port_data &port,
                     std::uint32_t sub_port);
void write_settings(const module_writer &module, const lum_port_data &port, std::uint32_t sub_port);

}  // namespace

// Until a port has been saved the answer is 22.
cerrno lum_set_hw_info(std::int32_t count, const std::uint32_t *ifhandles,
                       const lum_hw_info_in *records, const std::uint64_t *changed_bits) {
  LUM_INFO(119, "set hw info num ports %d\n", count);
  if (ifhandles == nullptr || records == nullptr) {
    LUM_ERROR(120, "Invalid i/p params in retrieve hw info cb fn");
    return EINVAL;
  }
  if (count < 1) {
    LUM_ERROR(121, "Invalid count in retrieve hw cb");
    return EINVAL;
  }
  if (changed_bits == nullptr) return EINVAL;
  ports_reader reader;
  cerrno rc = EINVAL;
  for (std::int32_t i = 0; i < count; ++i) {
    LUM_INFO(122, "index %d ifh 0x%x changed bits [0x%lx]\n", i, ifhandles[i], changed_bits[i]);
    std::uint32_t rsip = 0;
    lum_port_node_info *node = nullptr;
    if (lum_ports_db_get_rsip_from_ifh(ifhandles[i], &rsip) == 0) {
      node = find_port(rsip);
    }
    LUM_INFO(123, "index %d port_node: %p rsip: 0x%x\n", i, static_cast<const void *>(node), rsip);
    if (node == nullptr) return rc;
    lum_port_data &port = node->data;
    LUM_INFO(124, "index %d port_data: %p\n", i, static_cast<const void *>(&port));
    const std::uint32_t sub_port = sub_port_of(port, ifhandles[i]);
    take_over(port, sub_port, records[i], changed_bits[i]);
    lum_provision_port_cfg_data(sub_port, &port, changed_bits[i]);
    rc = lum_chkpt_save(&port);
  }
  return rc;
}

// A port whose mutex a deletion keeps is left alone, and so is one that has been created anew.
cerrno lum_provision_port_cfg_data(std::uint32_t sub_port, lum_port_data *data,
                                   std::uint64_t changed_bits) {
  if (sub_port >= LUM_SUB_PORTS || data == nullptr) return EINVAL;
  ports_reader reader;
  port_hold lock(*data, {"lum_provision_port_cfg_data", 1398}, after_failure::leave);
  LUM_INFO(125, "subport %d RSIP %d/%d/%d/%d\n", sub_port, data->rack, data->slot, data->instance,
           data->port);
  LUM_INFO(126, "subport %d changed bits: [0x%lx] RSIP %d/%d/%d/%d\n", sub_port, changed_bits,
           data->rack, data->slot, data->instance, data->port);
  if (!lock.barred() && !is_replaced(*data)) write_changes(*data, sub_port, changed_bits);
  if (const int rc = lock.release(); rc != 0) {
    return LUM_ERROR(127, "module access unlock failed with rc %d \n", rc);
  }
  return 0;
}

namespace {

template <std::size_t Position>
void take(std::uint32_t &field, const lum_hw_info_in &record) {
  shared_store(field, get<Position, std::uint32_t>(bytes_of(record)));
}

void take_over(lum_port_data &port, std::uint32_t sub_port, const lum_hw_info_in &record,
               std::uint64_t changed_bits) {
  lum_port_cfg &cfg = port.port_cfg[sub_port];
  std::lock_guard lock(port_cfg_lock);
  shared_or(cfg.changed_bits, changed_bits);
  if ((changed_bits & LUM_CHANGE_THRESHOLD) != 0) take<LUM_HW_IN_THRESHOLD>(cfg.threshold, record);
  if ((changed_bits & LUM_CHANGE_P2_SETTING) != 0) {
    take<LUM_HW_IN_P2_SETTING>(cfg.p2_setting, record);
  }
  if ((changed_bits & LUM_CHANGE_MODE) != 0) take<LUM_HW_IN_MODE>(cfg.mode, record);
  if ((changed_bits & LUM_CHANGE_SETTINGS) != 0) {
    take<LUM_HW_IN_SETTING_A>(cfg.setting_a, record);
    take<LUM_HW_IN_SETTING_B>(cfg.setting_b, record);
    take<LUM_HW_IN_ENABLE_FLAG>(cfg.enable_flag, record);
    take<LUM_HW_IN_SUB1_FLAG>(cfg.sub1_flag, record);
  }
}

void write_changes(const lum_port_data &port, std::uint32_t sub_port, std::uint64_t changed_bits) {
  const module_writer module(port);
  const lum_port_cfg &cfg = port.port_cfg[sub_port];
  const setting_places &at = places_of[sub_port];
  if ((changed_bits & LUM_CHANGE_P2_SETTING) != 0) {
    module.word(threshold_page, at.p2_setting, shared_load(cfg.p2_setting) * 10);
  }
  if ((changed_bits & LUM_CHANGE_THRESHOLD) != 0) write_threshold(module, port, sub_port);
  if ((changed_bits & LUM_CHANGE_SETTINGS) != 0) write_settings(module, port, sub_port);
  if ((changed_bits & LUM_CHANGE_MODE) != 0) {
    module.layout_byte(at.mode, shared_load(cfg.mode) == 3 ? 2 : 1);
  }
}

// The pair is moved in the order that keeps the upper threshold above the lower at every moment.
void write_threshold(const module_writer &module, const lum_port_data &port,
                     std::uint32_t sub_port) {
  const setting_places &at = places_of[sub_port];
  const std::int16_t current = module.read_word(threshold_page, at.lower_threshold);
  const std::uint32_t lower = shared_load(port.port_cfg[sub_port].threshold) * 10;
  const std::uint32_t upper = lower + threshold_distance;
  const bool raised = static_cast<std::int32_t>(lower) > current;
  if (sub_port == 0) {
    LUM_INFO(128, "subport %d RSIP %d/%d/%d/%d, current th %x is_th_raised %d\n", 0, port.rack,
             port.slot, port.instance, port.port, current, raised ? 1 : 0);
  } else {
    LUM_INFO(129, "subport %d RSIP %d/%d/%d/%d, current th %x is_th_raised %d\n", sub_port,
             port.rack, port.slot, port.instance, port.port, current, raised ? 1 : 0);
  }
  if (raised) {
    module.word(threshold_page, at.upper_threshold, upper);
    module.word(threshold_page, at.lower_threshold, lower);
  } else {
    module.word(threshold_page, at.lower_threshold, lower);
    module.word(threshold_page, at.upper_threshold, upper);
  }
}

void write_settings(const module_writer &module, const lum_port_data &port,
                    std::uint32_t sub_port) {
  const lum_port_cfg &cfg = port.port_cfg[sub_port];
  const setting_places &at = places_of[sub_port];
  module.layout_word(at.setting_a, shared_load(cfg.setting_a) * 10);
  module.layout_word(at.setting_b, shared_load(cfg.setting_b) * 10);
  if (sub_port == 1) module.layout_byte(sub1_flag_at, shared_load(cfg.sub1_flag) & 1);
  module.layout_byte(at.enable_flag, shared_load(cfg.enable_flag) & 1);
}

}  // namespace
