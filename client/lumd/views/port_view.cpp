#include "port_view.h"

#include <fmt/format.h>

#include <cstring>

#include "alarm_view.h"
#include "configuration.h"
#include "driver.h"
#include "lum_linux/modules.h"
#include "lum_linux/stores.h"
#include "module_flags.h"
#include "readings.h"
#include "times.h"

namespace lumd {
namespace {

using lum_linux::module_status;
using std::chrono::system_clock;

constexpr std::chrono::seconds stuck_after(2);

bool last_transfer_failed(const module_status &module) {
  return module.statistics.failed > 0 &&
         module.statistics.last_failure > module.statistics.last_success;
}

module_status module_of(driver &node, const lum_linux::port_description &port) {
  return node.platform().modules().last_status(port.rsip).value_or(module_status());
}

port_state judge(driver &node, const lum_linux::port_description &port, const port_copy *copy,
                 const module_status &module) {
  if (copy == nullptr) return port_state::absent;
  if (is_going(*copy)) return port_state::going;
  if (!is_created(*copy)) return port_state::coming_up;
  if (copy->data.inserted == 0) return port_state::empty;
  if (node.platform().fw_upgrade(port.rsip) != 0) return port_state::upgrading;
  if (module.busy_for > stuck_after || last_transfer_failed(module)) return port_state::failing;
  return port_state::up;
}

std::string reason_for(port_state state, const module_status &module) {
  switch (state) {
    case port_state::absent:
      return "the port has not been created, or has been deleted";
    case port_state::going:
      return "the interface manager has not confirmed the deletion yet";
    case port_state::coming_up:
      return "the interface manager has not confirmed both controllers yet";
    case port_state::empty:
      return "there is no module in the cage";
    case port_state::upgrading:
      return "the module's firmware is being upgraded";
    case port_state::failing:
      if (module.busy_for > stuck_after) {
        return fmt::format("a transfer has not ended for {:.0f} s",
                           std::chrono::duration<double>(module.busy_for).count());
      }
      return fmt::format("the module's last transfer failed: {}",
                         cerr_strerror(module.statistics.last_error));
    case port_state::up:
      return "";
  }
  return "";
}

// A text field of the library: ends at its NUL or with its field.
template <std::size_t size>
std::string text_of(const char (&field)[size]) {
  return std::string(field, strnlen(field, size));
}

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
  const char *name = state == LUM_LED_OFF      ? "off"
                     : state == LUM_LED_NORMAL ? "normal"
                     : state == LUM_LED_FAULT  ? "fault"
                                               : "other";
  return {{"state", state}, {"name", name}};
}

json show_readings(const lum_dom_area &area) {
  json readings = json::array();
  for (std::size_t i = 0; i < std::size(area.readings); ++i) {
    const uint16_t raw = area.readings[i];
    json reading = {{"raw", raw}};
    if (i < powers) {
      reading["dbm"] = power_dbm(raw);
      reading["microwatt"] = power_microwatt(raw);
    } else {
      reading["value"] = reading_value(raw);
    }
    readings.push_back(std::move(reading));
  }
  return readings;
}

json show_monitoring(uint32_t ifhandle) {
  json shown = json::object();
  if (const auto pm = lum_linux::pm_find(ifhandle); pm && pm->latest) {
    shown["age_s"] = seconds_since(pm->updated);
    shown["reading_3"] = pm->latest->reading_3;
    shown["reading_4"] = pm->latest->reading_4[0];
    shown["power_1"] = pm->latest->power_1;
    shown["power_0"] = pm->latest->power_0;
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
  if (statistics.last_success != system_clock::time_point()) {
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

}  // namespace

std::string_view port_state_name(port_state state) {
  switch (state) {
    case port_state::absent:
      return "absent";
    case port_state::going:
      return "deleting";
    case port_state::coming_up:
      return "coming up";
    case port_state::empty:
      return "empty";
    case port_state::upgrading:
      return "upgrading";
    case port_state::failing:
      return "failing";
    case port_state::up:
      return "up";
  }
  return "unknown";
}

port_state state_of(driver &node, const lum_linux::port_description &port, const port_copy *copy) {
  return judge(node, port, copy, module_of(node, port));
}

json show_port(driver &node, const lum_linux::port_description &port, const port_copy *copy) {
  const module_status module = module_of(node, port);
  const port_state state = judge(node, port, copy, module);
  json shown = {{"name", port.name},
                {"rack", port.rsip >> 24},
                {"slot", port.rsip >> 16 & 0xFF},
                {"instance", port.rsip >> 8 & 0xFF},
                {"port", port.rsip & 0xFF},
                {"rsip", port.rsip},
                {"port_handle", port.handle},
                {"state", port_state_name(state)},
                {"reason", reason_for(state, module)},
                {"module", show_module(module)}};
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

}  // namespace lumd
