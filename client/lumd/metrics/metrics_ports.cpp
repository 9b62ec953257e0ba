// The ports, their modules and sub-ports.
#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "lum.h"
#include "lum_linux/leds.h"
#include "lum_linux/modules.h"
#include "lum_linux/stores.h"
#include "metrics/metrics_subjects.h"
#include "node/alarms.h"
#include "node/driver.h"
#include "node/findings.h"
#include "node/port_data.h"
#include "node/port_snapshot.h"
#include "node/readings.h"
#include "node/troubles.h"
#include "views/times.h"

namespace lumd {
namespace {

using lum_linux::module_status;
using lum_linux::port_description;
using lum_words::reading_unit;
using lum_words::readings;

void add_states(const metric_labels &port, port_state current, metrics_page &page) {
  for (const auto &[state, name] : lum_words::port_states) {
    page.gauge("lum_port_state", "1 for the state that the port is in, 0 for the others", port,
               {"state", name}, state == current ? 1 : 0);
  }
}

void add_transfers(const driver &node, const metric_labels &port, const module_status &module,
                   metrics_page &page) {
  const auto &transfers = module.statistics;
  if (module.is_known() && module.place_code == 0) {
    page.gauge("lum_module_present", "1 when there is a module in the cage", port,
               module.present ? 1 : 0);
  }
  page.counter("lum_module_transfers_total", "Transfers attempted with the module", port,
               static_cast<double>(transfers.attempted));
  page.counter("lum_module_failed_transfers_total", "Transfers with the module that failed", port,
               static_cast<double>(transfers.failed));
  if (transfers.attempted > 0) {
    page.gauge("lum_module_last_transfer_duration_seconds", "How long the latest transfer took",
               port, std::chrono::duration<double>(transfers.last_duration).count());
  }
  page.gauge("lum_module_busy_seconds", "How long the transfer under way has taken, 0 for none",
             port, std::chrono::duration<double>(module.busy_for).count());
  if (transfers.last_success != std::chrono::steady_clock::time_point()) {
    page.gauge("lum_module_last_success_timestamp_seconds",
               "When the latest good transfer was, since the epoch", port,
               epoch_seconds(node.time_of(transfers.last_success)));
  }
}

void add_identity(const metric_labels &port, uint32_t rsip, const lum_vendor_info &vendor,
                  metrics_page &page) {
  metric_labels labels = port;
  labels.add({"rack", std::to_string(rsip >> 24)});
  labels.add({"slot", std::to_string(rsip >> 16 & 0xFF)});
  labels.add({"slot_instance", std::to_string(rsip >> 8 & 0xFF)});
  labels.add({"number", std::to_string(rsip & 0xFF)});
  labels.add({"vendor", text_of(vendor.vendor_name)});
  labels.add({"part", text_of(vendor.vendor_part_number)});
  labels.add({"serial", text_of(vendor.vendor_serial_number)});
  page.fact("lum_port_info", "Where the port is and which module is in it; always 1", labels);
}

void add_readings(const metric_labels &sub_port, const lum_dom_area &area, metrics_page &page) {
  constexpr const char *power_help = "Optical power";
  constexpr const char *reading_help = "The other readings, in the module's units";
  for (std::size_t i = 0; i < readings.size(); ++i) {
    const uint16_t raw = area.readings[i];
    const metric_label which = {"reading", readings[i].name};
    if (readings[i].unit == reading_unit::dbm) {
      page.gauge("lum_power_dbm", power_help, sub_port, which, power_dbm(raw));
      page.gauge("lum_power_watts", power_help, sub_port, which, power_watts(raw));
    } else {
      page.gauge("lum_reading", reading_help, sub_port, which, reading_value(raw));
    }
  }
}

void add_alarms(const metric_labels &labels, std::size_t sub_port,
                const lum_linux::ptah_interface &stored, metrics_page &page) {
  for (const lum_words::alarm &kind : lum_words::alarms) {
    if (!belongs_to(kind, sub_port)) continue;
    page.gauge("lum_alarm", "1 while the alarm is raised", labels, {"alarm", kind.name},
               (stored.all.bitmap & bit_of(kind)) != 0 ? 1 : 0);
  }
  page.counter("lum_alarm_changes_total", "How often the alarms have changed", labels,
               stored.all.values[lum_linux::ptah_bitmap_changes]);
}

void add_injections(const metric_labels &labels, const lum_test_injection &test,
                    metrics_page &page) {
  const auto &offsets = test.pm_test_offsets;
  const bool raised = std::any_of(std::begin(offsets), std::end(offsets),
                                  [](uint16_t offset) { return offset != 0; });
  const auto add = [&](const char *kind, bool injected) {
    page.gauge("lum_injected", "1 while a test forces alarms or raises what is monitored", labels,
               {"kind", kind}, injected ? 1 : 0);
  };
  add("alarms", test.test_alarm_bits != 0);
  add("readings", raised);
}

// An empty cage has no readings and no alarms of its own, and alarms wait for readings.
void add_sub_port(driver &node, const metric_labels &port, const port_snapshot &at,
                  std::size_t number, metrics_page &page) {
  const port_copy &copy = *at.copy;
  const lum_sub_port_intf &controller = copy.data.sub_port[number];
  const metric_labels labels = port.with("sub_port", std::to_string(number));
  page.gauge("lum_controller_created", "1 when the controller of the sub-port exists", labels,
             controller.created != 0 ? 1 : 0);
  add_injections(labels, copy.data.test[number], page);
  if (!at.polled) return;
  add_readings(labels, copy.data.dom[number], page);
  const auto fed = node.feed().fed(controller.ifhandle);
  if (!fed || fed->ended < at.begun) return;
  if (const auto stored = lum_linux::ptah_find(controller.ifhandle)) {
    add_alarms(labels, number, *stored, page);
  }
}

std::size_t implausible_readings(const lum_port_data &data) {
  std::size_t count = implausible_words(data.module_temperature, data.module_word_16).size();
  for (const lum_dom_area &area : data.dom) {
    for (std::size_t i = 0; i < readings.size(); ++i) {
      const bool is_power = readings[i].unit == reading_unit::dbm;
      if (is_power && !is_plausible_power(area.readings[i])) ++count;
    }
  }
  return count;
}

void add_module(const driver &node, const metric_labels &port, const port_snapshot &at,
                metrics_page &page) {
  if (!at.polled) return;
  const lum_port_data &data = at.copy->data;
  page.gauge("lum_module_temperature_celsius", "Temperature of the module", port,
             temperature_celsius(data.module_temperature));
  page.gauge("lum_module_supply_volts", "Supply voltage of the module", port,
             supply_volts(data.module_word_16));
  page.gauge("lum_readings_timestamp_seconds", "When the module was polled, since the epoch", port,
             epoch_seconds(node.time_of(at.polled->ended)));
  page.gauge("lum_implausible_readings",
             "Powers, temperature and supply that the module cannot have measured", port,
             static_cast<double>(implausible_readings(data)));
}

void add_led(driver &node, const metric_labels &port, uint32_t rsip, metrics_page &page) {
  const auto led = node.platform().leds().status(rsip);
  if (led && led->state) {
    page.gauge("lum_port_led_state", "The port's LED: 0 off, 1 normal, 3 fault", port, *led->state);
  }
}

void add_port(driver &node, const port_description &port, const port_snapshot &at,
              metrics_page &page) {
  const metric_labels labels("port", port.name);
  add_states(labels, at.state, page);
  page.gauge("lum_port_state_since_timestamp_seconds",
             "Since when the port has been in its state, since the epoch", labels,
             epoch_seconds(node.time_of(at.since)));
  add_transfers(node, labels, at.module, page);
  add_identity(labels, port.rsip, at.is_filled ? at.copy->data.vendor : lum_vendor_info{}, page);
  add_led(node, labels, port.rsip, page);
  if (!at.copy) return;
  page.gauge("lum_port_dom_enabled", "1 when the port's module is to be polled", labels,
             at.copy->data.is_dom_enabled != 0 ? 1 : 0);
  add_module(node, labels, at, page);
  for (std::size_t i = 0; i < LUM_SUB_PORTS; ++i) add_sub_port(node, labels, at, i, page);
}

void add_troubles(driver &node, metrics_page &page) {
  std::map<std::pair<std::string, std::string_view>, int> counts;
  for (const port_description *port : node.node().ports()) {
    for (const auto kind : {led_trouble_name, place_trouble_name}) counts[{port->name, kind}] = 0;
  }
  for (const trouble &one : troubles_of(node)) counts[{one.port->name, one.kind}] = 1;
  for (const auto &[key, count] : counts) {
    page.gauge("lum_port_trouble",
               "1 while the port's LED cannot be set, or its bus or folder cannot be reached",
               metric_labels("port", key.first).with("kind", key.second), count);
  }
}

// What is wrong now, as `lumctl check` tells it; of each kind there is a number always.
void add_findings(driver &node, const std::map<uint32_t, port_snapshot> &snapshots,
                  metrics_page &page) {
  std::map<std::string_view, unsigned> counts;
  for (const auto &one : lum_words::findings) counts[one.name] = 0;
  for (const port_state state : {port_state::failing, port_state::stale}) {
    counts[name_of(lum_words::port_states, state)] = 0;
  }
  for (const finding &one : findings_of(node, snapshots)) ++counts[one.kind];
  for (const auto &[kind, count] : counts) {
    page.gauge("lum_findings", "What is wrong with the node now, by what it is", {"kind", kind},
               count);
  }
}

}  // namespace

void add_port_metrics(driver &node, metrics_page &page) {
  const auto snapshots = look_at_ports(node);
  for (const port_description *port : node.node().ports()) {
    add_port(node, *port, snapshots.at(port->rsip), page);
  }
  add_troubles(node, page);
  add_findings(node, snapshots, page);
}

}  // namespace lumd
