#include "decode/memory_dump.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "api/json.h"
#include "json/read.h"
#include "lum_linux/image.h"

namespace lumctl {
namespace {

using lum_linux::eeprom_position;
using lum_linux::module_max_pages;
using lum_linux::module_page_size;

constexpr std::size_t whole_memory = std::size_t{module_page_size} * (module_max_pages + 1);
constexpr std::size_t bytes_per_line = 16;

constexpr const char *expected =
    "expected an eeprom file, or what lumctl show module --page or lum-module-image --dump printed";

// No text has such a byte, and every module's memory has many.
bool is_text(std::string_view content) {
  return std::none_of(content.begin(), content.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && byte != '\n' && byte != '\r' && byte != '\t') || byte == 0x7F ||
           byte >= 0xF8;
  });
}

dump_reading refused(std::string why) {
  return {std::nullopt, dump_layout::eeprom, std::move(why)};
}

dump_reading read_eeprom(std::string_view content) {
  memory_dump dump;
  dump.put(0, {reinterpret_cast<const std::uint8_t *>(content.data()), content.size()});
  return {std::move(dump), dump_layout::eeprom, {}};
}

// The number that the text begins with, which is taken off it.
std::optional<std::uint32_t> take_number(std::string_view &text, int base = 10) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool take(std::string_view &text, std::string_view what) {
  if (!text.starts_with(what)) return false;
  text.remove_prefix(what.size());
  return true;
}

void skip_blanks(std::string_view &text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

// "Page 3, the lower page first:", "page 3" and "lower page", which counts for page 0.
std::optional<std::uint32_t> page_of_heading(std::string_view line) {
  if (line == "lower page") return 0;
  if (!take(line, "Page ") && !take(line, "page ")) return std::nullopt;
  const auto page = take_number(line);
  if (!page || *page >= module_max_pages) return std::nullopt;
  if (!line.empty() && line != ", the lower page first:") return std::nullopt;
  return page;
}

// "  128  18 00 41 ...  ..A.": an offset, bytes in hexadecimal, and the characters that they are.
bool read_line(std::string_view line, std::uint32_t page, memory_dump &dump) {
  skip_blanks(line);
  const auto offset = take_number(line);
  if (!offset || *offset >= 2 * module_page_size || !take(line, "  ")) return false;
  std::array<std::uint8_t, bytes_per_line> bytes{};
  std::size_t count = 0;
  while (count < bytes.size() && line.size() >= 2) {
    std::string_view digits = line.substr(0, 2);
    const auto byte = take_number(digits, 16);
    if (!byte || !digits.empty()) break;
    bytes[count++] = static_cast<std::uint8_t>(*byte);
    line.remove_prefix(2);
    if (!take(line, " ")) break;
  }
  const std::size_t room = 2 * std::size_t{module_page_size} - *offset;
  if (count == 0 || count > room) return false;
  dump.put(eeprom_position(page, *offset), {bytes.data(), count});
  return true;
}

// Whatever else the text says is passed over.
dump_reading read_text(std::string_view content) {
  memory_dump dump;
  std::optional<std::uint32_t> page;
  while (!content.empty()) {
    std::string_view line = content.substr(0, content.find('\n'));
    content.remove_prefix(std::min(line.size() + 1, content.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (const auto heading = page_of_heading(line)) {
      page = heading;
    } else if (page && !read_line(line, *page, dump)) {
      page.reset();
    }
  }
  if (dump.known() == 0) {
    return refused(std::string("it is text without a page of a module's memory; ") + expected);
  }
  return {std::move(dump), dump_layout::text, {}};
}

// False when it is no page.
bool read_page(const json &page, memory_dump &dump) {
  if (!page.is_object() || !page.contains("number") || !page.contains("bytes")) return false;
  const json &number = page.at("number");
  const json &bytes = page.at("bytes");
  if (!number.is_number_unsigned() || number.get<std::uint64_t>() >= module_max_pages) return false;
  if (!bytes.is_array() || bytes.size() != 2 * std::size_t{module_page_size}) return false;
  std::vector<std::uint8_t> values;
  for (const json &byte : bytes) {
    if (!byte.is_number_unsigned() || byte.get<std::uint64_t>() > 0xFF) return false;
    values.push_back(byte.get<std::uint8_t>());
  }
  const std::span<const std::uint8_t> all(values);
  dump.put(0, all.first(module_page_size));
  dump.put(eeprom_position(number.get<std::uint32_t>(), module_page_size),
           all.subspan(module_page_size));
  return true;
}

dump_reading read_json(std::string_view content) {
  std::string why;
  const json document = lum_json::read(content, why);
  if (!why.empty()) return refused("it begins like JSON and " + why + "; " + expected);
  memory_dump dump;
  json pages = json::array();
  if (document.is_object() && document.contains("page")) pages.push_back(document.at("page"));
  if (document.is_object() && document.contains("pages") && document.at("pages").is_array()) {
    for (const json &page : document.at("pages")) pages.push_back(page);
  }
  for (const json &page : pages) {
    if (!read_page(page, dump)) {
      return refused("its JSON has a page without a number from 0 to 255 or without 256 bytes");
    }
  }
  if (pages.empty()) return refused(std::string("its JSON has no \"page\"; ") + expected);
  return {std::move(dump), dump_layout::document, {}};
}

}  // namespace

void memory_dump::put(std::size_t position, std::span<const std::uint8_t> bytes) {
  const std::size_t end = std::min(position + bytes.size(), whole_memory);
  behind_ += position + bytes.size() - std::max(end, position);
  if (end <= position) return;
  if (bytes_.size() < end) {
    bytes_.resize(end);
    known_.resize(end);
  }
  const auto at = static_cast<std::ptrdiff_t>(position);
  std::copy_n(bytes.begin(), end - position, bytes_.begin() + at);
  std::fill_n(known_.begin() + at, end - position, true);
}

bool memory_dump::has(std::uint32_t page, std::uint32_t offset, std::size_t length) const {
  const std::size_t first = eeprom_position(page, offset);
  if (length > known_.size() || first > known_.size() - length) return false;
  const auto begin = known_.begin() + static_cast<std::ptrdiff_t>(first);
  return std::all_of(begin, begin + static_cast<std::ptrdiff_t>(length),
                     [](bool known) { return known; });
}

std::optional<std::uint8_t> memory_dump::byte(std::uint32_t page, std::uint32_t offset) const {
  if (!has(page, offset)) return std::nullopt;
  return bytes_[eeprom_position(page, offset)];
}

std::optional<std::uint16_t> memory_dump::word(std::uint32_t page, std::uint32_t offset) const {
  if (!has(page, offset, 2)) return std::nullopt;
  const std::size_t at = eeprom_position(page, offset);
  return static_cast<std::uint16_t>(bytes_[at] << 8 | bytes_[at + 1]);
}

std::vector<std::uint32_t> memory_dump::pages() const {
  std::vector<std::uint32_t> found;
  for (std::uint32_t page = 0; page < module_max_pages; ++page) {
    const std::size_t first = eeprom_position(page, module_page_size);
    bool any = false;
    for (std::size_t i = first; i < std::min(first + module_page_size, known_.size()); ++i) {
      any = any || known_[i];
    }
    if (any) found.push_back(page);
  }
  return found;
}

std::size_t memory_dump::known() const {
  return static_cast<std::size_t>(std::count(known_.begin(), known_.end(), true));
}

dump_reading read_dump(std::string_view content) {
  if (content.empty()) return refused(std::string("it is empty; ") + expected);
  if (content.size() > longest_dump) {
    return refused("it is longer than " + std::to_string(longest_dump) + " bytes; " + expected);
  }
  if (!is_text(content)) return read_eeprom(content);
  const std::size_t first = content.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && content[first] == '{' ? read_json(content)
                                                                  : read_text(content);
}

}  // namespace lumctl
