#include "printing/module_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printing/line.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"

namespace lumctl {
namespace {

constexpr std::size_t bytes_per_line = 16;
constexpr std::size_t bytes_per_narrow_line = 8;
constexpr std::size_t columns_of_a_dump = 72;

std::string with_unit(const json &port, const char *name, int digits, const char *unit) {
  const json value = port.contains(name) ? port.at(name) : json();
  if (!value.is_number()) return "-";
  return fmt::format("{} {}{}", number_or_dash(value, digits), unit,
                     is_implausible(port, name) ? not_plausible : "");
}

std::string describe_polled(const json &port) {
  const json &dom = port.at("dom");
  std::string text = dom.at("enabled").get<bool>() ? "" : "switched off";
  if (dom.contains("last_poll_age_s")) {
    text += fmt::format("{}{} s ago", text.empty() ? "" : ", last ",
                        number_or_dash(dom.at("last_poll_age_s"), 1));
  }
  return text.empty() ? "not since it came or was replayed" : text;
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

// The raised flags by name, a line each.
std::string describe_raised(const json &raised) {
  if (!raised.is_array()) return line("Flags", "-");
  if (raised.empty()) return line("Flags", "none");
  std::string text;
  for (const json &name : raised) text += line(text.empty() ? "Flags" : "", text_or_dash(name));
  return text;
}

// Whether there is one, as far as anybody has looked.
std::string describe_presence(const json &module) {
  if (!module.at("present").is_boolean()) return line("Present", "not known");
  const char *const is = module.at("present").get<bool>() ? "yes" : "no";
  return line("Present", !module.contains("known_age_s")
                             ? is
                             : fmt::format("{}, as of {} s ago", is,
                                           number_or_dash(module.at("known_age_s"), 1)));
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

// 256 bytes of a module, 16 or 8 a line, with the characters they are.
std::string hex_dump(const json &page, const style &where) {
  const std::size_t per_line = where.columns == 0 || where.columns >= columns_of_a_dump
                                   ? bytes_per_line
                                   : bytes_per_narrow_line;
  const auto bytes = page.at("bytes").get<std::vector<std::uint8_t>>();
  std::string text = fmt::format("Page {}, the lower page first:\n", page.at("number").get<int>());
  for (std::size_t start = 0; start < bytes.size(); start += per_line) {
    std::string digits;
    std::string characters;
    for (std::size_t i = start; i < std::min(start + per_line, bytes.size()); ++i) {
      digits += fmt::format("{:02x} ", bytes[i]);
      const bool visible = bytes[i] >= 0x20 && bytes[i] < 0x7F;
      characters += visible ? static_cast<char>(bytes[i]) : '.';
    }
    text += fmt::format("  {:3}  {:<{}} {}\n", start, digits, 3 * per_line, characters);
  }
  return text;
}

}  // namespace

std::string describe_module_identity(const json &port, bool whole) {
  const json &vendor = port.at("vendor");
  const auto field = [&vendor](const char *name) { return text_or_dash(vendor.at(name)); };
  if (!whole) {
    return line("Vendor", field("name")) +
           line("Part", fmt::format("{} revision {}", field("part"), field("revision"))) +
           line("Serial", field("serial")) + line("Firmware", firmware_text(port));
  }
  return describe_vendor(vendor) +
         line("Firmware", firmware_text(port) + describe_memory_map(port.at("new_memmap")));
}

std::string describe_condition(const json &port, bool whole) {
  return describe_levels(port) + line("Polled", describe_polled(port)) +
         describe_flag_lines(port, whole);
}

std::string describe_vendor(const json &vendor) {
  const auto field = [&vendor](const char *name) { return text_or_dash(vendor.at(name)); };
  return line("Vendor", fmt::format("{} (OUI {})", field("name"), field("oui"))) +
         line("Part", fmt::format("{} revision {}", field("part"), field("revision"))) +
         line("Serial", fmt::format("{} date {}", field("serial"), field("date"))) +
         line("Extra", fmt::format("code {} id {}", field("extra_code"), field("extra_id")));
}

std::string describe_levels(const json &shown) {
  return line("Temperature", with_unit(shown, "temperature_c", 2, "C")) +
         line("Supply", with_unit(shown, "supply_v", 4, "V"));
}

std::string describe_flag_lines(const json &shown, bool whole) {
  return describe_raised(shown.at("raised")) +
         (whole ? line("Flag bytes", describe_flags(shown)) : "");
}

std::string describe_memory_map(const json &is_new) {
  if (is_new.is_null()) return {};
  return is_new.get<bool>() ? ", newer memory map" : ", older memory map";
}

std::string describe_transfers(const json &module) {
  std::string text = line("Location", text_or_dash(module.at("location")));
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
    const std::string last = number_or_dash(module.at("last_transfer_us"), 0);
    text += line("Bytes", fmt::format("{} read, {} written, the last transfer took {} us",
                                      module.at("bytes_read").get<std::uint64_t>(),
                                      module.at("bytes_written").get<std::uint64_t>(), last));
  }
  return text;
}

std::string describe_module(const json &port, const style &where) {
  const json &module = port.at("module");
  std::string text =
      line("Module", "of port " + text_or_dash(port.at("name"))) + describe_presence(module);
  if (port.contains("halt")) text += describe_halt(port.at("halt"));
  if (port.contains("vendor")) {
    text += "\n" + describe_module_identity(port, true) + "\n" + describe_condition(port, true);
  }
  text += "\n" + describe_transfers(module);
  text = folded_lines(text, where);
  if (port.contains("page")) text += "\n" + hex_dump(port.at("page"), where);
  return text;
}

}  // namespace lumctl
