#include "decode/decoded.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/module_flags.h"
#include "base/module_words.h"
#include "decode/checksums.h"
#include "images/image_places.h"
#include "lum_linux/image.h"
#include "words/readings.h"

namespace lumctl {
namespace {

using namespace lum_linux;

// As the library reads it: to the first zero, and without the blanks at its end.
std::optional<std::string> text_at(const memory_dump &dump, const text_place &place) {
  if (!dump.has(place.at.page, place.at.offset, place.size)) return std::nullopt;
  std::string text;
  for (std::uint32_t i = 0; i < place.size; ++i) {
    text += static_cast<char>(*dump.byte(place.at.page, place.at.offset + i));
  }
  const std::size_t last = text.find_last_not_of(" \t\n\v\f\r");
  text.erase(last == std::string::npos ? 0 : last + 1);
  return text.substr(0, text.find('\0'));
}

json vendor_of(const memory_dump &dump) {
  json shown = json::object();
  for (const text_place &place : text_places) {
    const std::string name = std::string_view(place.key) == "vendor" ? "name" : place.key;
    const auto text = text_at(dump, place);
    shown[name] = text ? json(*text) : json();
  }
  shown["oui"] = nullptr;
  if (dump.has(oui_place.page, oui_place.offset, 3)) {
    const auto at = [&dump](std::uint32_t i) {
      return *dump.byte(oui_place.page, oui_place.offset + i);
    };
    shown["oui"] = fmt::format("{:02x}.{:02x}.{:02x}", at(0), at(1), at(2));
  }
  return shown;
}

std::string version_text(std::uint32_t version) {
  return fmt::format("{}.{:02}", version >> 8 & 0xFF, version & 0xFF);
}

// The vendor decides how the library reads the firmware when the identity is read, and with it
// which memory map the module has; a poll takes the two bytes as they are.
struct identity_firmware {
  std::uint32_t version = 0;
  bool new_memmap = false;
};

identity_firmware judge_firmware(const std::string &vendor, std::uint32_t high, std::uint32_t low) {
  constexpr std::uint32_t digit_0 = 0x30;
  if (vendor.find("II-VI") != std::string::npos) {
    const std::uint32_t version = high << 8 | low;
    return {version, version > 0x005};
  }
  const std::uint32_t version =
      high >= digit_0 ? (high - digit_0) << 8 | (low - digit_0) : high << 8 | low;
  return {version, version > 0x106};
}

void add_firmware(const memory_dump &dump, json &shown) {
  shown["firmware"] = nullptr;
  shown["new_memmap"] = nullptr;
  const auto polled = dump.word(firmware_place.page, firmware_place.offset);
  if (!polled) return;
  shown["firmware"] = {{"bytes", {*polled >> 8, *polled & 0xFF}},
                       {"version", nullptr},
                       {"text", nullptr},
                       {"polled_text", version_text(*polled)}};
  if (!shown.at("vendor").at("name").is_string()) return;
  const identity_firmware judged = judge_firmware(shown.at("vendor").at("name").get<std::string>(),
                                                  *polled >> 8, *polled & 0xFFu);
  shown["firmware"]["version"] = judged.version;
  shown["firmware"]["text"] = version_text(judged.version);
  shown["new_memmap"] = judged.new_memmap;
}

void add_words(const memory_dump &dump, json &shown) {
  const auto temperature = dump.word(temperature_place.page, temperature_place.offset);
  const auto supply = dump.word(supply_place.page, supply_place.offset);
  shown["temperature_c"] = nullptr;
  shown["supply_v"] = nullptr;
  if (temperature) {
    shown["temperature_c"] =
        lum_client::temperature_celsius(static_cast<std::int16_t>(*temperature));
  }
  if (supply) shown["supply_v"] = lum_client::supply_volts(*supply);
  shown["implausible"] = json::array();
  // What is not there is not implausible.
  for (const std::string_view name : lum_client::implausible_words(
           static_cast<std::int16_t>(temperature.value_or(0)), supply.value_or(0))) {
    shown["implausible"].push_back(name);
  }
}

void add_flags(const memory_dump &dump, json &shown) {
  shown["flag_bytes"] = lum_client::flag_places();
  shown["flags"] = nullptr;
  shown["raised"] = nullptr;
  std::vector<std::uint8_t> flags;
  for (const unsigned place : lum_client::flag_places()) {
    const auto byte = dump.byte(0, place);
    if (!byte) return;
    flags.push_back(*byte);
  }
  shown["flags"] = flags;
  shown["raised"] = lum_client::raised_flags(flags);
}

json decode_reading(const lum_words::reading &word, std::uint16_t raw) {
  json one = {{"name", word.name}, {"raw", raw}};
  if (word.unit == lum_words::reading_unit::dbm) {
    one["dbm"] = lum_client::power_dbm(raw);
    one["microwatt"] = lum_client::power_microwatt(raw);
    one["plausible"] = lum_client::is_plausible_power(raw);
  } else {
    one["value"] = lum_client::reading_value(raw);
  }
  return one;
}

json decode_readings(const memory_dump &dump, const sub_port_places &places) {
  json shown = json::array();
  for (std::size_t i = 0; i < places.readings.size(); ++i) {
    const auto raw = dump.word(0, places.readings[i]);
    if (!raw) return json::array();
    shown.push_back(decode_reading(lum_words::readings[i], *raw));
  }
  return shown;
}

// Where they stand is not known before the memory map is.
json decode_status(const memory_dump &dump, const sub_port_places &places, const json &new_memmap) {
  json shown = json::array();
  if (!new_memmap.is_boolean()) return shown;
  const bool is_new = new_memmap.get<bool>();
  for (const std::uint32_t place : places.status) {
    const auto byte = dump.byte(is_new ? new_layout_page : old_layout_page,
                                place + (is_new ? new_layout_shift : 0));
    if (!byte) return json::array();
    shown.push_back(*byte);
  }
  return shown;
}

json decode_checksums(const memory_dump &dump, memory_standard standard) {
  json shown = json::array();
  for (const check_byte &check : check_bytes(standard, dump)) {
    const auto sum = sum_of(check, dump);
    const auto stored = dump.byte(check.page, check.place);
    json one = {{"name", check.name}, {"page", check.page},  {"first", check.first},
                {"last", check.last}, {"byte", check.place}, {"sum", nullptr},
                {"stored", nullptr},  {"good", nullptr},     {"blank", is_blank(check, dump)}};
    if (sum) one["sum"] = *sum;
    if (stored) one["stored"] = *stored;
    if (sum && stored && one.at("blank") == false) one["good"] = *sum == *stored;
    shown.push_back(std::move(one));
  }
  return shown;
}

// Both places have the identifier; a dump of page 0 alone has the second.
std::optional<std::uint8_t> identifier_of(const memory_dump &dump) {
  const auto lower = dump.byte(identifier_place.page, identifier_place.offset);
  return lower ? lower : dump.byte(page_0_identifier_place.page, page_0_identifier_place.offset);
}

void add_identifier(const memory_dump &dump, json &shown) {
  shown["identifier"] = nullptr;
  shown["checksums"] = json::array();
  const auto code = identifier_of(dump);
  if (!code) return;
  const known_identifier *known = find_identifier(*code);
  const memory_standard standard = known != nullptr ? known->standard : memory_standard::unknown;
  shown["identifier"] = {{"code", *code}, {"name", nullptr}, {"standard", nullptr}};
  if (known != nullptr) {
    shown["identifier"]["name"] = known->name;
    shown["identifier"]["standard"] = name_of(standard);
  }
  shown["checksums"] = decode_checksums(dump, standard);
}

bool is_clean(const std::string &text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

// What no sound module has.
json doubts_about(const memory_dump &dump, const json &shown) {
  json doubts = json::array();
  const auto lower = dump.byte(identifier_place.page, identifier_place.offset);
  const auto upper = dump.byte(page_0_identifier_place.page, page_0_identifier_place.offset);
  if (lower && upper && lower != upper) {
    doubts.push_back(fmt::format("byte 0 says identifier 0x{:02x}, byte 128 of page 0 0x{:02x}",
                                 *lower, *upper));
  }
  for (const auto &[name, value] : shown.at("vendor").items()) {
    if (value.is_string() && !is_clean(value.get<std::string>())) {
      doubts.push_back(fmt::format("the vendor's {} has bytes that are no text", name));
    }
  }
  for (const json &name : shown.at("implausible")) {
    doubts.push_back(fmt::format("no module can have measured {}", name.get<std::string>()));
  }
  for (const json &sub_port : shown.at("sub_ports")) {
    for (const json &reading : sub_port.at("readings")) {
      if (!reading.value("plausible", true)) {
        doubts.push_back(fmt::format("no module can have measured {} of sub-port {}",
                                     reading.at("name").get<std::string>(),
                                     sub_port.at("sub_port").get<unsigned>()));
      }
    }
  }
  return doubts;
}

// Pages that something was looked for in, and that are not in the dump as a whole.
json missing_parts(const memory_dump &dump, const json &shown) {
  json missing = json::array();
  const auto look = [&](std::uint32_t page, std::uint32_t offset, const std::string &name) {
    if (dump.has(page, offset, module_page_size)) return;
    bool any = false;
    for (std::uint32_t i = 0; i < module_page_size; ++i) any = any || dump.has(page, offset + i);
    missing.push_back((any ? "part of " : "") + name);
  };
  look(0, 0, "the lower page");
  look(0, module_page_size, "page 0");
  if (shown.at("new_memmap") == true) look(new_layout_page, module_page_size, "page 1");
  look(old_layout_page, module_page_size, "page 3");
  return missing;
}

}  // namespace

json decode(const memory_dump &dump) {
  json shown = {{"bytes", dump.known()}, {"bytes_behind", dump.behind()}, {"pages", dump.pages()}};
  shown["lower_page"] = dump.has(0, 0, module_page_size);
  add_identifier(dump, shown);
  shown["vendor"] = vendor_of(dump);
  add_firmware(dump, shown);
  add_words(dump, shown);
  add_flags(dump, shown);
  shown["sub_ports"] = json::array();
  for (std::size_t i = 0; i < sub_ports_places.size(); ++i) {
    shown["sub_ports"].push_back(
        {{"sub_port", i},
         {"readings", decode_readings(dump, sub_ports_places[i])},
         {"status", decode_status(dump, sub_ports_places[i], shown.at("new_memmap"))}});
  }
  shown["doubts"] = doubts_about(dump, shown);
  shown["missing"] = missing_parts(dump, shown);
  return shown;
}

}  // namespace lumctl
