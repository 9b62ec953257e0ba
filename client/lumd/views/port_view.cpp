#include "views/port_view.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "lum_linux/checkpoints.h"
#include "lum_linux/modules.h"
#include "lum_linux/stores.h"
#include "node/driver.h"
#include "node/module_flags.h"
#include "node/port_state.h"
#include "node/readings.h"
#include "views/alarm_view.h"
#include "views/configuration_view.h"
#include "views/store_view.h"
#include "views/times.h"
#include "words/leds.h"

namespace lumd {
namespace {

using lum_linux::module_status;

json show_vendor(const lum_vendor_info &vendor) {
  return {{"name", text_of(vendor.vendor_name)},
          {"part", text_of(vendor.vendor_part_number)},
          {"serial", text_of(vendor.vendor_serial_number)},
          {"revision", text_of(vendor.vendor_rev)},
          {"date", text_of(vendor.vendor_date_code)},
          {"oui", fmt::format("{:02x}.{:02x}.{:02x}", vendor.vendor_oui[0], vendor.vendor_oui[1],
                              vendor.vendor_oui[2])},
          {"extra_code", text_of(vendor.vendor_extra_code)},
          {"extra_id", text_of(vendor.vendor_extra_id)}};
}

json show_led(uint32_t rsip) {
  uint32_t state = LUM_LED_OFF;
  if (!CERR_IS_OK(lum_optics_led_get_state(rsip, 0, &state))) return nullptr;
  const std::string_view name = state == LUM_LED_OFF      ? lum_words::led_off
                                : state == LUM_LED_NORMAL ? lum_words::led_normal
                                : state == LUM_LED_FAULT  ? lum_words::led_fault
                                                          : lum_words::led_other;
  return {{"state", state}, {"name", name}};
}

json show_readings(const lum_dom_area &area) {
  json shown = json::array();
  for (std::size_t i = 0; i < lum_words::readings.size(); ++i) {
    const uint16_t raw = area.readings[i];
    json one = {{"raw", raw}};
    if (lum_words::readings[i].unit == lum_words::reading_unit::dbm) {
      one["dbm"] = power_dbm(raw);
      one["microwatt"] = power_microwatt(raw);
    } else {
      one["value"] = reading_value(raw);
    }
    shown.push_back(std::move(one));
  }
  return shown;
}

json show_monitoring(uint32_t ifhandle) {
  json shown = json::object();
  if (const auto pm = lum_linux::pm_find(ifhandle); pm && pm->latest) {
    shown["age_s"] = seconds_since(pm->updated.moment);
    for (const monitored_reading &reading : monitored_readings()) {
      shown[lum_words::member_of(reading.word().name)] = reading.value(*pm->latest);
    }
  }
  if (const auto ptah = lum_linux::ptah_find(ifhandle)) {
    shown["alarms"] = ptah->all.bitmap;
    shown["raised"] = alarm_names(ptah->all.bitmap);
  }
  return shown;
}

json show_sub_port(const port_copy &port, std::size_t number, bool has_readings) {
  const lum_sub_port_intf &controller = port.data.sub_port[number];
  const bool exists = controller.created != 0;
  json shown = {{"sub_port", number},
                {"ifname", text_of(controller.ifname)},
                {"ifhandle", controller.ifhandle},
                {"created", exists}};
  shown["configuration"] = show_configuration(port.data.port_cfg[number]);
  json readings = json::array();
  json status = json::array();
  if (has_readings) {
    readings = show_readings(port.data.dom[number]);
    status = port.data.dom[number].status;
  }
  shown["readings"] = std::move(readings);
  shown["status"] = std::move(status);
  if (exists) shown["pm"] = show_monitoring(controller.ifhandle);
  return shown;
}

json show_module(const module_status &module) {
  const auto &statistics = module.statistics;
  json shown = {{"location", module.location},
                {"present", module.present},
                {"transfers", statistics.attempted},
                {"failed_transfers", statistics.failed}};
  if (module.known_at != std::chrono::steady_clock::time_point()) {
    shown["known_age_s"] = seconds_since(module.known_at);
  }
  if (statistics.last_success != std::chrono::steady_clock::time_point()) {
    shown["last_success_age_s"] = seconds_since(statistics.last_success);
  }
  if (statistics.failed > 0) {
    shown["last_failure_age_s"] = seconds_since(statistics.last_failure);
    shown["last_error"] = {{"code", statistics.last_error},
                           {"text", cerr_strerror(statistics.last_error)}};
  }
  return shown;
}

json show_dom(const port_copy &port, const module_status &module, bool has_readings) {
  json shown = {{"enabled", port.data.is_dom_enabled != 0},
                {"transceiver_disabled", port.data.transceiver_disabled != 0}};
  if (has_readings) shown["last_poll_age_s"] = seconds_since(module.statistics.last_success);
  return shown;
}

void add_module_data(const port_copy &port, bool has_readings, json &shown) {
  const lum_port_data &data = port.data;
  shown["vendor"] = show_vendor(data.vendor);
  shown["firmware"] = nullptr;
  shown["temperature_c"] = nullptr;
  shown["supply_v"] = nullptr;
  shown["flags"] = nullptr;
  shown["flag_bytes"] = flag_places();
  shown["raised"] = nullptr;
  if (data.inserted != 0 && (has_readings || data.vendor.fw_version != 0)) {
    const uint32_t version = data.vendor.fw_version;
    shown["firmware"] = {{"version", version},
                         {"text", fmt::format("{}.{:02}", version >> 8 & 0xFF, version & 0xFF)}};
  }
  if (!has_readings) return;
  shown["temperature_c"] = temperature_celsius(data.module_temperature);
  shown["supply_v"] = supply_volts(data.module_word_16);
  shown["flags"] = data.module_flags;
  shown["raised"] = raised_flags(data.module_flags);
}

// Without a store it is not known whether there is a record.
json show_record(const lum_chkpt_record &record) {
  if (lum_linux::checkpoint_is_unknown(record.chkpt_id)) {
    return {{"id", nullptr}, {"created", nullptr}};
  }
  return {{"id", record.chkpt_id}, {"created", record.created != 0}};
}

// The port's checkpoint record, the lock that a deletion keeps, and what provisioning has marked.
void add_upkeep(const port_copy &port, json &shown) {
  shown["checkpoint"] = show_record(port.data.chkpt);
  shown["mutex_kept"] = port.data.mutex_kept_by != 0;
  shown["provisioning"] = {{"needed", port.data.provisioning_needed != 0},
                           {"forced", port.data.force_reprovisioning != 0}};
}

json show_port(driver &node, const lum_linux::port_description &port, const port_copy *copy,
               const lum_linux::checkpoint_status &store) {
  const port_condition condition = condition_of(node, port, copy);
  const module_status &module = condition.module;
  json shown = {{"name", port.name},
                {"rack", port.rsip >> 24},
                {"slot", port.rsip >> 16 & 0xFF},
                {"instance", port.rsip >> 8 & 0xFF},
                {"port", port.rsip & 0xFF},
                {"rsip", port.rsip},
                {"port_handle", port.handle},
                {"state", name_of(lum_words::port_states, condition.state)},
                {"reason", condition.reason},
                {"module", show_module(module)},
                {"store", show_store_of(store, port.rsip)}};
  if (copy == nullptr) {
    shown["sub_ports"] = json::array();
    return shown;
  }
  shown["inserted"] = copy->data.inserted != 0;
  shown["new_memmap"] = copy->data.new_memmap != 0;
  const bool has_readings = copy->data.inserted != 0 && node.cages().has_readings(port.rsip);
  add_module_data(*copy, has_readings, shown);
  shown["led"] = show_led(port.rsip);
  shown["dom"] = show_dom(*copy, module, has_readings);
  add_upkeep(*copy, shown);
  shown["sub_ports"] =
      json::array({show_sub_port(*copy, 0, has_readings), show_sub_port(*copy, 1, has_readings)});
  return shown;
}

}  // namespace

json show_port(driver &node, const lum_linux::port_description &port, const port_copy *copy) {
  return show_port(node, port, copy, lum_linux::checkpoints_status());
}

json show_ports(driver &node, bool existing_only) {
  const auto store = lum_linux::checkpoints_status();
  const auto copies = copy_ports();
  json shown = json::array();
  for (const lum_linux::port_description *port : node.node().ports()) {
    const auto found = copies.find(port->rsip);
    if (existing_only && found == copies.end()) continue;
    shown.push_back(
        show_port(node, *port, found == copies.end() ? nullptr : &found->second, store));
  }
  return {{"ports", std::move(shown)}, {"store", show_store(store, node.node())}};
}

}  // namespace lumd
