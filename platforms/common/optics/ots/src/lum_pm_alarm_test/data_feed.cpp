// Readings for PM and alarms for PTAH.
#include <cerrno>

#include "base/shared.h"
#include "base/trace.h"
#include "lum_controller_interface/lum_controller_interface.h"
#include "lum_ports_db/lum_ports_db.h"
#include "pm_ui.h"
#include "ptah.h"

using namespace lum;

static constexpr char trace_area[] = "lum_pm_alarm_test";

static void send_readings(const lum_port_data &port, std::uint32_t sub_port,
                          std::uint32_t ifhandle);
static std::uint64_t alarms_of(const lum_port_data &port, std::uint32_t sub_port);

cerrno lum_update_pm_ptah_data(std::uint32_t ifhandle) {
  if (ifhandle == 0) return EINVAL;
  std::uint32_t rsip = 0;
  if (lum_ports_db_get_rsip_from_ifh(ifhandle, &rsip) != 0) return EINVAL;
  std::uint32_t upgrading = 0;
  lum_optics_get_fw_upgrd_status(rsip, &upgrading);
  if (upgrading != 0) return EINVAL;
  ports_reader reader;
  const lum_port_node_info *node = find_port(rsip);
  if (node == nullptr) return EINVAL;

  const lum_port_data &port = node->data;
  const std::uint32_t sub_port = sub_port_of(port, ifhandle);
  if (pm_ui_db_search_node(ifhandle) != nullptr) send_readings(port, sub_port, ifhandle);
  ptah_al_store_bmap(ifhandle, alarms_of(port, sub_port), 1);
  ptah_al_send_bmap_counter(ifhandle);
  return 0;
}

cerrno lum_lib_clear_stats(std::int32_t count, const std::uint32_t *ifhandles) {
  if (count < 1 || ifhandles == nullptr) {
    LUM_ERROR(70, "Invalid I/P Params\n");
    return EINVAL;
  }
  cerrno rc = 0;
  for (std::int32_t i = 0; i < count; ++i) rc = ptah_al_port_clear_stats(ifhandles[i]);
  return rc;
}

static void send_readings(const lum_port_data &port, std::uint32_t sub_port,
                          std::uint32_t ifhandle) {
  const auto reading = [&](std::size_t i) -> std::uint32_t {
    return shared_load(port.dom[sub_port].readings[i]);
  };
  const auto offset = [&](std::size_t i) -> std::uint32_t {
    return shared_load(port.test[sub_port].pm_test_offsets[i]);
  };
  // The sum of an offset and a reading is a reading again: 16 bits, and wraps.
  const auto power = [&](std::size_t offset_number, std::size_t reading_number) {
    return power_of(static_cast<std::uint16_t>(offset(offset_number) + reading(reading_number)));
  };
  const std::uint32_t reading_4 = offset(1) + reading(4);
  pm_ui_optics_record record = {};
  record.reading_3 = (offset(0) + reading(3)) / 10;
  for (std::uint32_t &value : record.reading_4) value = reading_4;
  record.power_1 = power(2, 1);
  record.power_0 = power(3, 0);
  pm_ui_set_optics_prim(ifhandle, &record, 1, 0);
}

static std::uint64_t alarms_of(const lum_port_data &port, std::uint32_t sub_port) {
  const std::uint8_t byte_10 = module_flags_at<10>(port);
  const std::uint8_t byte_12 = module_flags_at<12>(port);
  const std::uint8_t byte_49 = module_flags_at<49>(port);
  std::uint64_t alarms = module_alarms(port, sub_port);
  if ((byte_12 & (sub_port == 0 ? 0x20 : 0x02)) != 0) alarms |= LUM_ALARM_FLAG_12;
  if ((byte_10 & (sub_port == 0 ? 0x02 : 0x20)) != 0) alarms |= LUM_ALARM_FLAG_10;
  if (sub_port == 1 && byte_49 != 0) alarms |= LUM_ALARM_FLAG_49_A | LUM_ALARM_FLAG_49_B;
  return alarms | shared_load(port.test[sub_port].test_alarm_bits);
}
