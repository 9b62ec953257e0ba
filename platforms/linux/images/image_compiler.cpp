#include "images/image_compiler.h"

#include <fmt/format.h>

#include <algorithm>

#include "images/motion_compiler.h"
#include "images/reading_words.h"

namespace lum_linux {
namespace {

constexpr uint32_t min_pages = 4;
constexpr uint32_t default_identifier = 0x18;
constexpr std::size_t max_text = 4096;

bool is_printable(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Three bytes such as "00.1f.22".
std::optional<std::array<uint8_t, 3>> parse_oui(std::string_view text) {
  std::array<uint8_t, 3> oui{};
  if (text.size() != 8 || text[2] != '.' || text[5] != '.') return {};
  for (std::size_t i = 0; i < oui.size(); ++i) {
    const int high = hex_digit(text[3 * i]);
    const int low = hex_digit(text[3 * i + 1]);
    if (high < 0 || low < 0) return {};
    oui[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return oui;
}

}  // namespace

module_image image_compiler::compile(toml_table &table) {
  const auto pages = table.integer("pages", min_pages, module_max_pages, min_pages);
  const auto page_count = static_cast<std::size_t>(pages ? pages->value : module_max_pages);
  image_.bytes.assign(module_page_size * (page_count + 1), 0);
  if (const auto map = table.text("memory_map", max_text, "old")) {
    has_new_map_ = map->value == "new";
    if (!has_new_map_ && map->value != "old") {
      problems_.add(map->line,
                    fmt::format("'memory_map' is \"{}\", expected \"old\" or \"new\"", map->value));
    }
  }
  compile_identity(table);
  compile_measurements(table);
  compile_flags(table);
  for (uint32_t sub_port = 0; sub_port < sub_ports_places.size(); ++sub_port) {
    compile_sub_port(table, sub_port);
  }
  compile_faults(table);
  image_.motions = compile_motions(table, problems_);
  compile_raw(table);
  table.refuse_unknown_keys();
  finish_checksum();
  return std::move(image_);
}

void image_compiler::compile_identity(toml_table &table) {
  if (const auto identifier = table.integer("identifier", 0, 255, default_identifier)) {
    const auto value = static_cast<uint8_t>(identifier->value);
    put("identifier", identifier->line, identifier_place, value);
    put("identifier", identifier->line, page_0_identifier_place, value);
  }
  for (const text_place &place : text_places) {
    const std::string key = place.key;
    const bool is_given = table.has(key);
    const bool is_required = key == "vendor";
    const auto text = table.text(
        key, place.size, is_required ? std::nullopt : std::optional<std::string>(std::string()));
    if (!text || (!is_given && !place.is_always_there)) continue;
    if (is_printable(text->value)) {
      put_text(key, text->line, place, text->value);
    } else {
      problems_.add(text->line, fmt::format("'{}' holds a character that is not ASCII, expected a "
                                            "text in ASCII; [[raw]] takes any byte",
                                            key));
    }
  }
  compile_oui(table);
  compile_firmware(table);
}

void image_compiler::compile_oui(toml_table &table) {
  const auto text = table.text("oui", max_text, "00.00.00");
  if (!text) return;
  const auto oui = parse_oui(text->value);
  if (!oui) {
    problems_.add(text->line, fmt::format("'oui' is \"{}\", expected three bytes in hexadecimal "
                                          "such as \"00.1f.22\"",
                                          text->value));
    return;
  }
  for (uint32_t i = 0; i < oui->size(); ++i) {
    put("oui", text->line, {oui_place.page, oui_place.offset + i}, (*oui)[i]);
  }
}

void image_compiler::compile_firmware(toml_table &table) {
  constexpr const char *expected = "two bytes such as [1, 7], or two digits such as \"17\"";
  const auto found = table.any("firmware");
  if (!found) {
    problems_.add(table.line(),
                  fmt::format("missing key 'firmware' in the module, expected {}", expected));
    return;
  }
  const uint32_t line = found->line;
  if (found->is_array) {
    if (const auto bytes = table.numbers("firmware", 2, 0, 255, false)) {
      put("firmware", line, firmware_place, static_cast<uint8_t>(bytes->value[0]));
      put("firmware", line, {firmware_place.page, firmware_place.offset + 1},
          static_cast<uint8_t>(bytes->value[1]));
    }
    return;
  }
  const auto &digits = found->text;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  if (!digits || digits->size() != 2 || !is_digit(digits->at(0)) || !is_digit(digits->at(1))) {
    problems_.add(
        line, fmt::format("'firmware' is {}, expected {}",
                          digits ? fmt::format("\"{}\"", *digits) : std::string("of another kind"),
                          expected));
    return;
  }
  put_text("firmware", line, {"firmware", firmware_place, 2, true}, *digits);
}

void image_compiler::compile_measurements(toml_table &table) {
  if (const auto celsius = table.number("temperature", min_celsius, max_celsius)) {
    put_word("temperature", celsius->line, temperature_place,
             signed_word(celsius->value * steps_per_degree));
  }
  if (const auto volts = table.number("supply", 0, max_volts)) {
    put_word("supply", volts->line, supply_place, word(volts->value * steps_per_volt));
  }
}

void image_compiler::compile_flags(toml_table &table) {
  auto given = table.table("flags", "the flags");
  if (!given) return;
  toml_table &flags = *given;
  for (const uint32_t offset : flag_offsets) {
    const std::string key = std::to_string(offset);
    const auto value = flags.integer(key, 0, 255, 0);
    if (value) put("flags." + key, value->line, {0, offset}, static_cast<uint8_t>(value->value));
  }
  flags.refuse_unknown_keys();
}

void image_compiler::compile_sub_port(toml_table &table, uint32_t sub_port) {
  const std::string where = fmt::format("sub_port_{}", sub_port);
  auto given = table.table(where, where);
  if (!given) return;
  toml_table &inner = *given;
  const sub_port_places &places = sub_ports_places[sub_port];
  compile_readings(inner, places, where);
  if (const auto status = inner.numbers("status", places.status.size(), 0, 255, false)) {
    for (std::size_t i = 0; i < places.status.size(); ++i) {
      put(where + ".status", status->line, layout(places.status[i]),
          static_cast<uint8_t>(status->value[i]));
    }
  }
  const auto put_setting = [&](const char *key, byte_place place) {
    const auto value = inner.integer(key, 0, 65535, 0);
    if (value && inner.has(key)) {
      put_word(where + "." + key, value->line, place, static_cast<uint16_t>(value->value));
    }
  };
  put_setting("setting_a", layout(places.setting_a));
  put_setting("setting_b", layout(places.setting_b));
  put_setting("p2_setting", {threshold_page, places.p2_setting});
  if (const auto pair = inner.numbers("thresholds", 2, -32768, 32767, false)) {
    put_word(where + ".thresholds", pair->line, {threshold_page, places.thresholds},
             signed_word(pair->value[0]));
    put_word(where + ".thresholds", pair->line, {threshold_page, places.thresholds + 2},
             signed_word(pair->value[1]));
  }
  inner.refuse_unknown_keys();
}

// Either in units or as the words themselves; a reading given both ways has to agree.
void image_compiler::compile_readings(toml_table &table, const sub_port_places &places,
                                      const std::string &where) {
  if (const auto words = table.numbers("readings", reading_count, 0, max_word, false)) {
    for (std::size_t i = 0; i < reading_count; ++i) {
      put_word(where + ".readings", words->line, {0, places.readings[i]}, word(words->value[i]));
    }
  }
  if (const auto powers = table.numbers("powers_dbm", power_count, min_dbm, max_dbm, true)) {
    for (std::size_t i = 0; i < power_count; ++i) {
      put_word(where + ".powers_dbm", powers->line, {0, places.readings[i]},
               power_word(powers->value[i]));
    }
  }
  for (std::size_t i = power_count; i < reading_count; ++i) {
    const std::string key = fmt::format("reading_{}", i);
    if (const auto tenths = table.number(key, 0, max_word / steps_of_tenths)) {
      put_word(fmt::format("{}.{}", where, key), tenths->line, {0, places.readings[i]},
               word(tenths->value * steps_of_tenths));
    }
  }
}

// Raw bytes come last and take the place of what other keys have set.
void image_compiler::compile_raw(toml_table &table) {
  for (toml_table &raw : table.tables("raw", "[[raw]]", false, "the raw bytes")) {
    const auto pages = static_cast<int64_t>(image_.bytes.size() / module_page_size) - 1;
    const auto page = raw.integer("page", 0, pages - 1, 0);
    const auto offset = raw.integer("offset", 0, 255);
    const auto bytes = raw.numbers("bytes", 0, 0, 255, false);
    if (!raw.has("bytes")) {
      problems_.add(raw.line(),
                    "missing key 'bytes' in the raw bytes, expected an array of whole "
                    "numbers from 0 to 255");
    }
    raw.refuse_unknown_keys();
    if (!page || !offset || !bytes) continue;
    const bool is_lower = offset->value < module_page_size;
    const auto room = static_cast<std::size_t>(
        (is_lower ? module_page_size : 2 * module_page_size) - offset->value);
    if (bytes->value.size() > room) {
      problems_.add(bytes->line,
                    fmt::format("'bytes' holds {} bytes, expected at most {} from offset {} on",
                                bytes->value.size(), room, offset->value));
      continue;
    }
    for (std::size_t i = 0; i < bytes->value.size(); ++i) {
      const std::size_t position = eeprom_position(static_cast<uint32_t>(page->value),
                                                   static_cast<uint32_t>(offset->value)) +
                                   i;
      image_.bytes[position] = static_cast<uint8_t>(bytes->value[i]);
      origins_[position] = {"raw", bytes->line};
    }
  }
}

void image_compiler::compile_faults(toml_table &table) {
  const auto text = table.text("faults", max_text, "none");
  std::string error;
  if (text && !parse_fault_script(text->value, image_.faults, error)) {
    problems_.add(text->line, fmt::format("'faults': {}", error));
  }
}

void image_compiler::finish_checksum() {
  const std::size_t position = eeprom_position(0, checksum_offset);
  if (origins_.contains(position)) return;
  image_.bytes[position] = page_0_checksum(image_);
}

byte_place image_compiler::layout(uint32_t offset) const {
  if (has_new_map_) return {new_layout_page, offset + new_layout_shift};
  return {old_layout_page, offset};
}

void image_compiler::put(const std::string &key, uint32_t line, byte_place place, uint8_t value) {
  const std::size_t position = eeprom_position(place.page, place.offset);
  const auto [first, is_new] = origins_.emplace(position, origin{key, line});
  if (!is_new && image_.bytes[position] != value) {
    problems_.add(line, fmt::format("'{}' wants {} in byte {} of page {}, which '{}' in line {} "
                                    "has set to {}; expected the same value",
                                    key, value, place.offset, place.page, first->second.key,
                                    first->second.line, image_.bytes[position]));
    return;
  }
  image_.bytes[position] = value;
}

void image_compiler::put_word(const std::string &key, uint32_t line, byte_place place,
                              uint16_t value) {
  put(key, line, place, static_cast<uint8_t>(value >> 8));
  put(key, line, {place.page, place.offset + 1}, static_cast<uint8_t>(value & 0xFF));
}

void image_compiler::put_text(const std::string &key, uint32_t line, const text_place &place,
                              std::string_view text) {
  for (uint32_t i = 0; i < place.size; ++i) {
    const char c = i < text.size() ? text[i] : ' ';
    put(key, line, {place.at.page, place.at.offset + i}, static_cast<uint8_t>(c));
  }
}

}  // namespace lum_linux
