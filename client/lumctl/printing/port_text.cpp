#include "printing/port_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"
#include "printing/store_text.h"
#include "words/settings.h"

namespace lumctl {
namespace {

constexpr std::size_t bytes_per_line = 16;
constexpr const char *not_plausible = "  ? not plausible";

std::string with_unit(const json &port, const char *name, int digits, const char *unit) {
  const json value = port.contains(name) ? port.at(name) : json();
  if (!value.is_number()) return "-";
  return fmt::format("{} {}{}", number_or_dash(value, digits), unit,
                     is_implausible(port, name) ? not_plausible : "");
}

std::string describe_memory_map(const json &is_new) {
  if (is_new.is_null()) return {};
  return is_new.get<bool>() ? ", newer memory map" : ", older memory map";
}

std::string describe_vendor(const json &vendor) {
  const auto field = [&vendor](const char *name) { return text_or_dash(vendor.at(name)); };
  return line("Vendor", fmt::format("{} (OUI {})", field("name"), field("oui"))) +
         line("Part", fmt::format("{} revision {}", field("part"), field("revision"))) +
         line("Serial", fmt::format("{} date {}", field("serial"), field("date"))) +
         line("Extra", fmt::format("code {} id {}", field("extra_code"), field("extra_id")));
}

// A line of the cage's that can be steered, where it has one.
std::string describe_control_line(const json &module, const char *name, const char *title) {
  if (!module.contains(name)) return {};
  const json &one = module.at(name);
  const json &on = one.at("on");
  std::string state = on.is_null() ? "not known" : on.get<bool>() ? "on" : "off";
  if (one.contains("problem")) state += ", " + text_or_dash(one.at("problem"));
  return line(title, fmt::format("{} ({})", state, text_or_dash(one.at("file"))));
}

std::string describe_transfers(const json &module) {
  std::string text = line("Module", text_or_dash(module.at("location")));
  if (module.contains("way")) text += line("Read by", text_or_dash(module.at("way")));
  std::string transfers = fmt::format("{}, {} failed", module.at("transfers").get<std::uint64_t>(),
                                      module.at("failed_transfers").get<std::uint64_t>());
  if (module.contains("last_error")) {
    transfers +=
        fmt::format(", the last {} s ago: {}", number_or_dash(module.at("last_failure_age_s"), 1),
                    text_or_dash(module.at("last_error").at("text")));
    if (module.at("last_error").contains("reason")) {
      transfers += ", " + text_or_dash(module.at("last_error").at("reason"));
    }
  }
  if (module.contains("problem")) text += line("", text_or_dash(module.at("problem")));
  text += line("Transfers", transfers);
  text += describe_control_line(module, "reset", "Reset");
  text += describe_control_line(module, "low_power", "Low power");
  if (module.contains("backend")) {
    text += line("Backend", text_or_dash(module.at("backend")));
    text += line("Faults", text_or_dash(module.at("faults")));
    text += line("Bytes", fmt::format("{} read, {} written, the last transfer took {} us",
                                      module.at("bytes_read").get<std::uint64_t>(),
                                      module.at("bytes_written").get<std::uint64_t>(),
                                      module.at("last_transfer_us").get<std::uint64_t>()));
  }
  return text;
}

std::string describe_dom(const json &port) {
  std::string text = dom_cell(port).text;
  const json &dom = port.at("dom");
  if (dom.contains("last_poll_age_s")) {
    text += fmt::format(", polled {} s ago", number_or_dash(dom.at("last_poll_age_s"), 1));
  }
  return text;
}

std::string describe_bytes(const json &bytes) {
  std::string text;
  for (const json &byte : bytes) {
    text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte.get<unsigned>());
  }
  return text;
}

// Each flag byte behind its number in the module's lower page.
std::string describe_flags(const json &port) {
  const json &flags = port.at("flags");
  if (!flags.is_array()) return "-";
  const json &numbers = port.at("flag_bytes");
  std::string text;
  for (std::size_t i = 0; i < std::min(flags.size(), numbers.size()); ++i) {
    text += fmt::format("{}{}: {:02x}", text.empty() ? "byte " : ", ", numbers[i].get<unsigned>(),
                        flags[i].get<unsigned>());
  }
  return text;
}

std::string describe_alarms(const json &names) {
  std::string text;
  for (const json &name : names) text += (text.empty() ? "" : ", ") + text_or_dash(name);
  return text.empty() ? "none" : text;
}

// The raised flags by name, a line each.
std::string describe_raised(const json &raised) {
  std::string text;
  if (!raised.is_array()) return text;
  for (const json &name : raised) text += line("", text_or_dash(name));
  return text;
}

// What keeps the port's settings and locks.
std::string describe_upkeep(const json &port) {
  const json &record = port.at("checkpoint");
  return line("Checkpoint", record.at("created").is_null() ? "not known"
                            : record.at("created").get<bool>()
                                ? fmt::format("record {}", record.at("id").get<std::uint64_t>())
                                : "none") +
         line("Mutex", port.at("mutex_kept").get<bool>() ? "kept by the deletion" : "not kept");
}

std::string describe_reading(std::size_t number, const json &reading) {
  const unsigned raw = reading.at("raw").get<unsigned>();
  if (!reading.contains("dbm")) {
    return fmt::format("  reading {}     {:>10}                     raw {:5}\n", number,
                       number_or_dash(reading.at("value"), 1), raw);
  }
  const std::string microwatt =
      reading.contains("microwatt") ? number_or_dash(reading.at("microwatt"), 1) + " uW" : "";
  return fmt::format("  power {}       {:>10} dBm {:>15}  raw {:5}{}\n", number,
                     number_or_dash(reading.at("dbm"), 2), microwatt, raw,
                     reading.at("plausible").get<bool>() ? "" : not_plausible);
}

// The alarms that the alarm service was told of last.
std::string describe_alarms_told(const json &monitoring) {
  if (!monitoring.contains("raised")) return "  alarms        not known yet\n";
  return fmt::format("  alarms        {}, {} s ago{}\n", describe_alarms(monitoring.at("raised")),
                     number_or_dash(monitoring.at("alarms_age_s"), 0),
                     monitoring.at("waiting").get<bool>() ? ", waiting for the next poll" : "");
}

std::string describe_sub_port(const json &sub_port) {
  std::string text = fmt::format("Sub-port {}: {} {}{}\n", sub_port.at("sub_port").get<unsigned>(),
                                 text_or_dash(sub_port.at("ifname")), handle_text(sub_port),
                                 sub_port.at("created").get<bool>() ? "" : " not created");
  std::size_t number = 0;
  for (const json &reading : sub_port.at("readings")) text += describe_reading(number++, reading);
  if (sub_port.at("readings").empty()) text += "  readings      none\n";
  if (!sub_port.at("status").empty()) {
    text += "  status bytes  " + describe_bytes(sub_port.at("status")) + "\n";
  }
  text += "  settings      " + describe_configuration(sub_port.at("configuration")) + "\n";
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
  return line("Port", fmt::format("{} (handle {}, rsip 0x{:08x})", text_or_dash(port.at("name")),
                                  port.at("port_handle").get<std::uint32_t>(),
                                  port.at("rsip").get<std::uint32_t>())) +
         line("State", shown_state);
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

// What is known of the module.
std::string describe_condition(const json &port) {
  return describe_vendor(port.at("vendor")) +
         line("Firmware", firmware_text(port) + describe_memory_map(port.at("new_memmap"))) +
         line("Temperature", with_unit(port, "temperature_c", 2, "C")) +
         line("Supply", with_unit(port, "supply_v", 4, "V")) + line("DOM", describe_dom(port)) +
         line("Flags", describe_flags(port)) + describe_raised(port.at("raised")) +
         describe_upkeep(port);
}

// 256 bytes of a module, 16 a line, with the characters they are.
std::string hex_dump(const json &page) {
  const auto bytes = page.at("bytes").get<std::vector<std::uint8_t>>();
  std::string text = fmt::format("Page {}, the lower page first:\n", page.at("number").get<int>());
  for (std::size_t start = 0; start < bytes.size(); start += bytes_per_line) {
    std::string digits;
    std::string characters;
    for (std::size_t i = start; i < std::min(start + bytes_per_line, bytes.size()); ++i) {
      digits += fmt::format("{:02x} ", bytes[i]);
      const bool visible = bytes[i] >= 0x20 && bytes[i] < 0x7F;
      characters += visible ? static_cast<char>(bytes[i]) : '.';
    }
    text += fmt::format("  {:3}  {:<48} {}\n", start, digits, characters);
  }
  return text;
}

}  // namespace

std::string describe_port(const json &port, const style &where) {
  std::string text = describe_identity(port, where);
  if (port.contains("halt")) text += describe_halt(port.at("halt"));
  text += describe_led(port, where);
  if (port.contains("vendor")) text += describe_condition(port);
  text += describe_port_store(port.at("store"));
  text += describe_transfers(port.at("module"));
  for (const json &sub_port : port.at("sub_ports")) text += describe_sub_port(sub_port);
  if (port.contains("page")) text += hex_dump(port.at("page"));
  return text;
}

std::string describe_configuration(const json &configuration) {
  std::string text;
  for (const lum_words::setting &setting : lum_words::settings) {
    const json &value = configuration.at(lum_words::member_of(setting.name));
    text += fmt::format("{} {}, ", setting.name, value.get<std::int64_t>());
  }
  return text +
         fmt::format("changed 0x{:x}", configuration.at("changed_bits").get<std::uint64_t>());
}

}  // namespace lumctl
