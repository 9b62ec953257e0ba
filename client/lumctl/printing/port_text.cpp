#include "printing/port_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/module_text.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"
#include "printing/store_text.h"
#include "words/settings.h"

namespace lumctl {
namespace {

constexpr std::size_t width_of_sub_port_title = 16;

std::string describe_bytes(const json &bytes) {
  std::string text;
  for (const json &byte : bytes) {
    text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte.get<unsigned>());
  }
  return text;
}

// Those that a test forces are marked.
std::string describe_alarms(const json &names, const json &injected) {
  std::string text;
  for (const json &name : names) {
    const bool forced = std::find(injected.begin(), injected.end(), name) != injected.end();
    text += fmt::format("{}{}{}", text.empty() ? "" : ", ", text_or_dash(name),
                        forced ? " (injected by a test)" : "");
  }
  return text.empty() ? "none" : text;
}

std::string describe_reading(const json &reading, bool verbose) {
  const std::string name = text_or_dash(reading.at("name"));
  const std::string raw =
      verbose ? fmt::format("  raw {:5}", reading.at("raw").get<unsigned>()) : "";
  if (!reading.contains("dbm")) {
    const std::string value = number_or_dash(reading.at("value"), 1);
    return fmt::format("  {:<13} {:>10}{}{}\n", name, value, verbose ? std::string(19, ' ') : "",
                       raw);
  }
  const std::string microwatt =
      reading.contains("microwatt") ? number_or_dash(reading.at("microwatt"), 1) + " uW" : "";
  return fmt::format("  {:<13} {:>10} dBm {:>15}{}{}\n", name, number_or_dash(reading.at("dbm"), 2),
                     microwatt, raw, reading.at("plausible").get<bool>() ? "" : not_plausible);
}

// The alarms that the alarm service was told of last.
std::string describe_alarms_told(const json &monitoring) {
  if (!monitoring.contains("raised")) return "  alarms        not known yet\n";
  return fmt::format("  alarms        {}, {} s ago{}\n",
                     describe_alarms(monitoring.at("raised"), monitoring.at("injected")),
                     number_or_dash(monitoring.at("alarms_age_s"), 0),
                     monitoring.at("waiting").get<bool>() ? ", waiting for the next poll" : "");
}

std::string describe_sub_port(const json &sub_port, bool verbose) {
  const bool created = sub_port.at("created").get<bool>();
  std::string text =
      fmt::format("Sub-port {}: {}{}{}\n", sub_port.at("sub_port").get<unsigned>(),
                  text_or_dash(sub_port.at("ifname")), verbose ? " " + handle_text(sub_port) : "",
                  created ? "" : " not created");
  if (!sub_port.at("told").is_null()) {
    text.insert(text.size() - 1, ", last told " + text_or_dash(sub_port.at("told")));
  }
  text += describe_readings(sub_port, verbose);
  const json &configuration = sub_port.at("configuration");
  text += "  settings      " +
          (verbose ? describe_configuration(configuration) : describe_settings(configuration)) +
          "\n";
  if (sub_port.contains("pm")) text += describe_alarms_told(sub_port.at("pm"));
  return text;
}

std::string describe_identity(const json &port, const style &where) {
  const cell state = state_cell(port);
  std::string shown_state = fmt::format("{} for {} s", painted(where, state.text, state.paint),
                                        number_or_dash(port.at("state_age_s"), 0));
  if (!port.at("reason").get<std::string>().empty()) {
    shown_state += ", " + text_or_dash(port.at("reason"));
  }
  return line("Port", text_or_dash(port.at("name"))) + line("State", shown_state);
}

// What is lit and, where that cannot be set, what ought to be.
std::string describe_led(const json &port, const style &where) {
  const json &led = port.at("led");
  const cell shown = led_cell(port);
  if (!led.is_object() || !led.contains("problem")) {
    return line("LED", painted(where, shown.text, shown.paint));
  }
  const std::string seen = led.at("name").is_null() ? "what it shows is not known"
                                                    : "it shows " + text_or_dash(led.at("name"));
  const std::string wanted =
      led.at("wanted").is_null() ? "" : ", " + text_or_dash(led.at("wanted")) + " is wanted";
  return line("LED", fmt::format("{}: {}{}: {}", painted(where, shown.text, shown.paint), seen,
                                 wanted, text_or_dash(led.at("problem"))));
}

std::string describe_upkeep(const json &port) {
  if (!port.contains("checkpoint")) return {};
  const json &record = port.at("checkpoint");
  return line("Checkpoint", record.at("created").is_null() ? "not known"
                            : record.at("created").get<bool>()
                                ? fmt::format("record {}", record.at("id").get<std::uint64_t>())
                                : "none") +
         line("Mutex", port.at("mutex_kept").get<bool>() ? "kept by the deletion" : "not kept");
}

// How programs know the port, and what keeps its settings and locks.
std::string describe_internals(const json &port) {
  return line("Handle",
              fmt::format("{}, rsip 0x{:08x}", port.at("port_handle").get<std::uint32_t>(),
                          port.at("rsip").get<std::uint32_t>())) +
         describe_upkeep(port);
}

// Whether anything has been read of the module.
bool is_known(const json &port) {
  const json &vendor = port.at("vendor");
  return !port.at("raised").is_null() ||
         std::any_of(vendor.begin(), vendor.end(),
                     [](const json &field) { return !field.get<std::string>().empty(); });
}

const char *describe_absence(const json &port) {
  return port.at("module").at("present") == false ? "none in the cage" : "nothing is known of it";
}

// The module's part of the port; what else there is to know of it tells describe_module.
std::string describe_its_module(const json &port, bool verbose) {
  if (!port.contains("vendor")) return {};
  if (!verbose && !is_known(port)) return "\n" + line("Module", describe_absence(port));
  std::string text = describe_module_identity(port, verbose) + describe_condition(port, verbose);
  if (verbose) text += describe_transfers(port.at("module"));
  return "\n" + text;
}

}  // namespace

std::string describe_port(const json &port, bool verbose, const style &where) {
  std::string text = describe_identity(port, where);
  if (port.contains("halt")) text += describe_halt(port.at("halt"));
  text += describe_led(port, where) + describe_port_store(port.at("store"));
  if (verbose) text += describe_internals(port);
  text += describe_its_module(port, verbose);
  text = folded_lines(text, where);
  for (const json &sub_port : port.at("sub_ports")) {
    text += "\n" + wrapped_lines(describe_sub_port(sub_port, verbose), where.columns,
                                 width_of_sub_port_title);
  }
  return text;
}

std::string describe_settings(const json &configuration) {
  const char *const others =
      configuration.at("changed_known").get<bool>() ? "never set: " : "not known: ";
  std::string made;
  std::string never;
  for (const lum_words::setting &setting : lum_words::settings) {
    const json &value = configuration.at(lum_words::member_of(setting.name));
    if (value.is_null()) {
      never += fmt::format("{}{}", never.empty() ? others : ", ", setting.name);
    } else {
      made +=
          fmt::format("{}{} {}", made.empty() ? "" : ", ", setting.name, value.get<std::int64_t>());
    }
  }
  return made + (made.empty() || never.empty() ? "" : "; ") + never;
}

std::string describe_readings(const json &sub_port, bool verbose) {
  std::string text;
  for (const json &reading : sub_port.at("readings")) text += describe_reading(reading, verbose);
  if (sub_port.at("readings").empty()) text += "  readings      none\n";
  if (verbose && !sub_port.at("status").empty()) {
    text += "  status bytes  " + describe_bytes(sub_port.at("status")) + "\n";
  }
  return text;
}

std::string describe_configuration(const json &configuration) {
  return describe_settings(configuration) +
         fmt::format(", changed 0x{:x}", configuration.at("changed_bits").get<std::uint64_t>());
}

}  // namespace lumctl
