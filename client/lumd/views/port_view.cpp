#include "views/port_view.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "base/module_flags.h"
#include "json/object.h"
#include "lum_linux/checkpoints.h"
#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/stores.h"
#include "node/driver.h"
#include "node/port_snapshot.h"
#include "node/readings.h"
#include "views/alarm_view.h"
#include "views/configuration_view.h"
#include "views/pm_view.h"
#include "views/polling_view.h"
#include "views/store_view.h"
#include "views/times.h"
#include "words/controller_states.h"
#include "words/leds.h"

namespace lumd {
namespace {

using lum_client::object;

using lum_client::flag_places;
using lum_client::raised_flags;
using lum_linux::module_status;

// Nobody has read it when all of it is empty.
bool is_read(const lum_vendor_info &vendor) {
  return vendor.vendor_name[0] != '\0' || vendor.vendor_part_number[0] != '\0' ||
         vendor.vendor_serial_number[0] != '\0';
}

json show_vendor(const lum_vendor_info &vendor) {
  return object(
      {{"name", text_of(vendor.vendor_name)},
       {"part", text_of(vendor.vendor_part_number)},
       {"serial", text_of(vendor.vendor_serial_number)},
       {"revision", text_of(vendor.vendor_rev)},
       {"date", text_of(vendor.vendor_date_code)},
       {"oui", !is_read(vendor) ? ""
                                : fmt::format("{:02x}.{:02x}.{:02x}", vendor.vendor_oui[0],
                                              vendor.vendor_oui[1], vendor.vendor_oui[2])},
       {"extra_code", text_of(vendor.vendor_extra_code)},
       {"extra_id", text_of(vendor.vendor_extra_id)}});
}

std::string_view led_name(uint32_t state) {
  return state == LUM_LED_OFF      ? lum_words::led_off
         : state == LUM_LED_NORMAL ? lum_words::led_normal
         : state == LUM_LED_FAULT  ? lum_words::led_fault
                                   : lum_words::led_other;
}

// What is lit, as far as it could be read; with trouble also what ought to be. Null without an LED.
json show_led(driver &node, uint32_t rsip) {
  const auto known = node.platform().leds().status(rsip);
  if (!known) return nullptr;
  json shown = object({{"state", nullptr}, {"name", nullptr}});
  if (known->state) {
    shown = object({{"state", *known->state}, {"name", led_name(*known->state)}});
    shown["known_age_s"] = seconds_since(known->known_at);
  }
  if (!known->trouble) return shown;
  shown["wanted"] = nullptr;
  if (known->trouble->wanted) shown["wanted"] = led_name(*known->trouble->wanted);
  shown["problem"] =
      fmt::format("{}: {}", known->trouble->led.native(), cerr_strerror(known->trouble->code));
  return shown;
}

json show_readings(const lum_dom_area &area) {
  json shown = json::array();
  for (std::size_t i = 0; i < lum_words::readings.size(); ++i) {
    const lum_words::reading &word = lum_words::readings[i];
    const uint16_t raw = area.readings[i];
    json one = object({{"name", word.name}, {"raw", raw}});
    if (word.unit == lum_words::reading_unit::dbm) {
      one["dbm"] = power_dbm(raw);
      one["microwatt"] = power_microwatt(raw);
      one["plausible"] = is_plausible_power(raw);
    } else {
      one["value"] = reading_value(raw);
    }
    shown.push_back(std::move(one));
  }
  return shown;
}

json show_kept(const kept_value &reading, const pm_ui_optics_record &record) {
  const uint32_t kept = reading.value(record);
  if (!reading.is_power()) return object({{"value", kept / reading.per_unit}});
  json shown = object({{"microwatt", kept / reading.per_unit}, {"dbm", nullptr}});
  if (const auto dbm = kept_power_dbm(kept)) shown["dbm"] = *dbm;
  return shown;
}

// What the services were told last, with its age.
json show_monitoring(driver &node, uint32_t rsip, uint32_t ifhandle) {
  json shown = json::object();
  // Before what is stored: an old number must not have a new age.
  const auto age = age_of_kept(node, ifhandle);
  if (const auto pm = lum_linux::pm_find(ifhandle); pm && pm->latest && age) {
    shown["age_s"] = seconds_of(*age);
    shown["tested"] = pm->latest_tested;
    for (const kept_value &reading : monitored_readings()) {
      shown[lum_words::member_of(reading.word().name)] = show_kept(reading, *pm->latest);
    }
  }
  const json told = show_alarms_age(node, rsip, ifhandle);
  if (const auto ptah = lum_linux::ptah_find(ifhandle); ptah && !told.is_null()) {
    shown["alarms"] = ptah->all.bitmap;
    shown["raised"] = alarm_names(ptah->all.bitmap);
    shown["injected"] = injected_alarms(node, ifhandle);
    shown.update(told);
  }
  return shown;
}

// The state that the interface manager was told with an update; null before the first.
json show_told(driver &node, uint32_t ifhandle) {
  const auto known = node.platform().im().find(ifhandle);
  if (!known || !known->state) return nullptr;
  return *known->state == 0 ? lum_words::controller_down : lum_words::controller_up;
}

json show_sub_port(driver &node, uint32_t rsip, const port_snapshot &at, std::size_t number,
                   bool saved_are_known) {
  const port_copy &port = *at.copy;
  const lum_sub_port_intf &controller = port.data.sub_port[number];
  const bool exists = controller.created != 0;
  json shown = object({{"sub_port", number},
                       {"ifname", text_of(controller.ifname)},
                       {"ifhandle", controller.ifhandle},
                       {"created", exists}});
  shown["told"] = show_told(node, controller.ifhandle);
  shown["configuration"] = show_configuration(port.data.port_cfg[number], saved_are_known);
  json readings = json::array();
  json status = json::array();
  if (at.polled) {
    shown["readings_age_s"] = seconds_since(at.polled->ended);
    readings = show_readings(port.data.dom[number]);
    if (at.is_identified) status = port.data.dom[number].status;
  }
  shown["readings"] = std::move(readings);
  shown["status"] = std::move(status);
  if (exists) shown["pm"] = show_monitoring(node, rsip, controller.ifhandle);
  return shown;
}

json show_module(const module_status &module) {
  const auto &statistics = module.statistics;
  json shown = object({{"location", module.location},
                       {"present", nullptr},
                       {"transfers", statistics.attempted},
                       {"failed_transfers", statistics.failed}});
  if (knows_presence(module)) shown["present"] = module.present;
  if (module.is_known()) shown["known_age_s"] = seconds_since(module.known_at);
  if (module.place_code != 0) shown["problem"] = why_unreachable(module);
  if (statistics.last_success != std::chrono::steady_clock::time_point()) {
    shown["last_success_age_s"] = seconds_since(statistics.last_success);
  }
  if (statistics.failed > 0) {
    shown["last_failure_age_s"] = seconds_since(statistics.last_failure);
    shown["last_error"] =
        object({{"code", statistics.last_error}, {"text", cerr_strerror(statistics.last_error)}});
    if (!statistics.last_reason.empty()) shown["last_error"]["reason"] = statistics.last_reason;
  }
  return shown;
}

json show_dom(const port_snapshot &at) {
  json shown =
      object({{"enabled", at.copy->data.is_dom_enabled != 0}, {"transceiver_disabled", nullptr}});
  if (knows_presence(at.module)) {
    shown["transceiver_disabled"] = at.copy->data.transceiver_disabled != 0;
  }
  if (at.polled) shown["last_poll_age_s"] = seconds_since(at.polled->ended);
  return shown;
}

void add_module_data(const port_snapshot &at, json &shown) {
  const lum_port_data &data = at.copy->data;
  shown["vendor"] = show_vendor(at.is_filled ? data.vendor : lum_vendor_info{});
  shown["firmware"] = nullptr;
  shown["temperature_c"] = nullptr;
  shown["supply_v"] = nullptr;
  shown["implausible"] = json::array();
  shown["flags"] = nullptr;
  shown["flag_bytes"] = flag_places();
  shown["raised"] = nullptr;
  if (at.is_filled && (at.polled || data.vendor.fw_version != 0)) {
    const uint32_t version = data.vendor.fw_version;
    shown["firmware"] =
        object({{"version", version},
                {"text", fmt::format("{}.{:02}", version >> 8 & 0xFF, version & 0xFF)}});
  }
  if (!at.polled) return;
  shown["temperature_c"] = temperature_celsius(data.module_temperature);
  shown["supply_v"] = supply_volts(data.module_word_16);
  shown["implausible"] = implausible_words(data.module_temperature, data.module_word_16);
  shown["flags"] = data.module_flags;
  shown["raised"] = raised_flags(data.module_flags);
}

// Without a store it is not known whether there is a record.
json show_record(const lum_chkpt_record &record) {
  if (lum_linux::checkpoint_is_unknown(record.chkpt_id)) {
    return object({{"id", nullptr}, {"created", nullptr}});
  }
  return object({{"id", record.chkpt_id}, {"created", record.created != 0}});
}

// The port's checkpoint record, the lock that a deletion keeps, and what provisioning has marked.
void add_upkeep(const port_copy &port, json &shown) {
  shown["checkpoint"] = show_record(port.data.chkpt);
  shown["mutex_kept"] = port.data.mutex_kept_by != 0;
  shown["provisioning"] = object({{"needed", port.data.provisioning_needed != 0},
                                  {"forced", port.data.force_reprovisioning != 0}});
}

// What a view of any extent begins with. Members are put in one by one here and below: lists of
// them would be made twice, and the shelf is asked for by whoever looks at the page.
json show_state(driver &node, const lum_linux::port_description &port, const port_snapshot &at) {
  json shown = json::object();
  shown["name"] = port.name;
  shown["rack"] = port.rsip >> 24;
  shown["slot"] = port.rsip >> 16 & 0xFF;
  shown["instance"] = port.rsip >> 8 & 0xFF;
  shown["port"] = port.rsip & 0xFF;
  shown["rsip"] = port.rsip;
  shown["port_handle"] = port.handle;
  shown["state"] = name_of(lum_words::port_states, at.state);
  shown["reason"] = at.reason;
  shown["state_age_s"] = seconds_since(at.since);
  shown["led"] = show_led(node, port.rsip);
  shown["sub_ports"] = json::array();
  return shown;
}

json show_powers(const lum_dom_area &area) {
  json shown = json::array();
  for (std::size_t i = 0; i < lum_words::readings.size(); ++i) {
    const lum_words::reading &word = lum_words::readings[i];
    if (word.unit != lum_words::reading_unit::dbm) continue;
    json &one = shown.emplace_back(json::object());
    one["name"] = word.name;
    one["dbm"] = power_dbm(area.readings[i]);
    one["plausible"] = is_plausible_power(area.readings[i]);
  }
  return shown;
}

json show_brief_sub_port(driver &node, uint32_t rsip, const port_snapshot &at, std::size_t number) {
  const lum_sub_port_intf &controller = at.copy->data.sub_port[number];
  json shown = json::object();
  shown["sub_port"] = number;
  shown["powers"] = json::array();
  if (at.polled) {
    shown["powers_age_s"] = seconds_since(at.polled->ended);
    shown["powers"] = show_powers(at.copy->data.dom[number]);
  }
  if (controller.created == 0) return shown;
  const auto ptah = lum_linux::ptah_find(controller.ifhandle);
  if (ptah && !show_alarms_age(node, rsip, controller.ifhandle).is_null()) {
    shown["raised"] = alarm_names(ptah->all.bitmap);
  }
  return shown;
}

json show_brief_port(driver &node, const lum_linux::port_description &port,
                     const port_snapshot &at) {
  json shown = show_state(node, port, at);
  if (!at.copy) return shown;
  shown["part"] = at.is_filled ? text_of(at.copy->data.vendor.vendor_part_number) : "";
  for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) {
    shown["sub_ports"].push_back(show_brief_sub_port(node, port.rsip, at, i));
  }
  return shown;
}

json show_port(driver &node, const lum_linux::port_description &port, const port_snapshot &at,
               const lum_linux::checkpoint_status &store) {
  json shown = show_state(node, port, at);
  shown["module"] = show_module(at.module);
  shown["store"] = show_store_of(store, port.rsip);
  if (!at.copy) return shown;
  shown["inserted"] = knows_presence(at.module) ? json(at.is_filled) : json(nullptr);
  shown["new_memmap"] = nullptr;
  if (at.is_filled && at.is_identified && at.copy->data.vendor.fw_version != 0) {
    shown["new_memmap"] = at.copy->data.new_memmap != 0;
  }
  add_module_data(at, shown);
  shown["dom"] = show_dom(at);
  add_upkeep(*at.copy, shown);
  const bool saved_are_known = saved_settings_are_known(store, port.rsip);
  for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) {
    shown["sub_ports"].push_back(show_sub_port(node, port.rsip, at, i, saved_are_known));
  }
  return shown;
}

class text_array {
 public:
  void add(const json &one) {
    text_ += text_.empty() ? '[' : ',';
    text_ += lum_client::dumped(one);
  }
  std::string take() { return text_.empty() ? "[]" : std::move(text_) + "]"; }

 private:
  std::string text_;
};

}  // namespace

json show_port(driver &node, const lum_linux::port_description &port) {
  json shown = show_port(node, port, look_at(node, port), lum_linux::checkpoints_status());
  shown["halt"] = show_halt(node);
  return shown;
}

ports_view show_ports(driver &node, bool existing_only) {
  const auto store = lum_linux::checkpoints_status();
  const auto snapshots = look_at_ports(node);
  text_array shown;
  for (const lum_linux::port_description *port : node.node().ports()) {
    const port_snapshot &at = snapshots.at(port->rsip);
    if (existing_only && !at.copy) continue;
    shown.add(show_port(node, *port, at, store));
  }
  return {shown.take(),
          object({{"store", show_store(store, node.node())}, {"halt", show_halt(node)}})};
}

ports_view show_shelf(driver &node) {
  const auto snapshots = look_at_ports(node);
  text_array shown;
  for (const lum_linux::port_description *port : node.node().ports()) {
    shown.add(show_brief_port(node, *port, snapshots.at(port->rsip)));
  }
  return {shown.take(), json::object()};
}

}  // namespace lumd
