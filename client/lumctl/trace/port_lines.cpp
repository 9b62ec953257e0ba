#include "trace/port_lines.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>
#include <vector>

#include "lum_linux/node_description.h"

namespace lumctl {
namespace {

// What stands behind a word of a message.
enum class kind {
  rsip,          // hexadecimal with 0x, in decimal, or in parts
  packed,        // hexadecimal, with 0x always
  packed_key,    // the same, of a record that there is already
  parts,         // rack, slot, instance, port
  without_slot,  // instance/port
  handle,        // hexadecimal, of an interface
};

struct clue {
  std::string_view before;  // in small letters
  kind what;
};

// The library's words, as its trace points have them.
constexpr auto clues = std::to_array<clue>({
    {"rsip", kind::rsip},
    {"key", kind::packed},
    {"for", kind::packed_key},
    {"pending]", kind::packed},
    {"r/s/i/p", kind::parts},
    {"r/s/i/p/s", kind::parts},
    {"r: s: i: p:", kind::parts},
    {"rack", kind::parts},
    {"port to be deleted", kind::parts},
    {"delete port", kind::parts},
    {"node for", kind::parts},
    {"update for", kind::parts},
    {"on", kind::without_slot},
    {"for", kind::without_slot},
    {"ifh", kind::handle},
    {"ifhandle", kind::handle},
    {"interface", kind::handle},
    {"ptah ports for", kind::handle},
    {"in delete done for", kind::handle},
});

constexpr std::string_view interface_prefix = "ots";

struct found_names {
  std::vector<std::uint32_t> ports;  // rsip
  std::vector<std::uint32_t> handles;
  std::vector<std::uint32_t> partial;  // instance << 8 | port
};

char small(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

bool begins_with(std::string_view text, std::string_view in_small) {
  return text.size() >= in_small.size() &&
         std::equal(in_small.begin(), in_small.end(), text.begin(),
                    [](char wanted, char c) { return wanted == small(c); });
}

void skip(std::string_view &text, std::string_view what) {
  text.remove_prefix(std::min(text.find_first_not_of(what), text.size()));
}

std::optional<std::uint32_t> take_number(std::string_view &text, int base) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// Hexadecimal behind 0x; without it nothing is taken.
std::optional<std::uint32_t> take_packed(std::string_view &text) {
  if (!text.starts_with("0x")) return std::nullopt;
  text.remove_prefix(2);
  return take_number(text, 16);
}

// Four numbers, each a byte, with blanks, marks and perhaps words between them.
std::optional<std::uint32_t> take_parts(std::string_view &text, bool with_words) {
  std::array<std::uint32_t, 4> parts{};
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) {
      const std::size_t size = text.size();
      skip(text, with_words ? " ,/:_abcdefghijklmnopqrstuvwxyz" : " ,/:_");
      if (text.size() == size) return std::nullopt;
    }
    const auto part = take_number(text, 10);
    if (!part || *part > 0xFF) return std::nullopt;
    parts[i] = *part;
  }
  return lum_linux::make_rsip(parts[0], parts[1], parts[2], parts[3]);
}

void read_rsip(std::string_view text, found_names &found) {
  if (const auto packed = take_packed(text)) {
    found.ports.push_back(*packed);
    return;
  }
  std::string_view as_parts = text;
  if (const auto parts = take_parts(as_parts, false)) {
    found.ports.push_back(*parts);
  } else if (const auto number = take_number(text, 10)) {
    found.ports.push_back(*number);
  }
}

// "0/3 rc 5": with a third number it is a position.
void read_without_slot(std::string_view text, found_names &found) {
  const auto instance = take_number(text, 10);
  if (!instance || !text.starts_with('/')) return;
  text.remove_prefix(1);
  const auto port = take_number(text, 10);
  if (port && text.starts_with(" rc ") && *instance <= 0xFF && *port <= 0xFF) {
    found.partial.push_back(*instance << 8 | *port);
  }
}

void read_behind(const clue &one, std::string_view text, found_names &found) {
  skip(text, " :=([,'");
  switch (one.what) {
    case kind::rsip:
      read_rsip(text, found);
      return;
    case kind::packed:
      if (const auto packed = take_packed(text)) found.ports.push_back(*packed);
      return;
    case kind::packed_key:
      if (const auto packed = take_packed(text); packed && text.starts_with(" already")) {
        found.ports.push_back(*packed);
      }
      return;
    case kind::parts:
      if (const auto parts = take_parts(text, one.before == "rack")) found.ports.push_back(*parts);
      return;
    case kind::without_slot:
      read_without_slot(text, found);
      return;
    case kind::handle:
      if (text.starts_with("0x")) text.remove_prefix(2);
      if (const auto handle = take_number(text, 16)) found.handles.push_back(*handle);
      return;
  }
}

// "Ots0_1_0_3_1"
void read_interface(std::string_view text, found_names &found) {
  if (!begins_with(text, interface_prefix)) return;
  text.remove_prefix(interface_prefix.size());
  if (text.empty() || !is_digit(text.front())) return;
  if (const auto parts = take_parts(text, false)) found.ports.push_back(*parts);
}

found_names names_in(std::string_view message) {
  found_names found;
  // "[0x10003] new memmap: 1"
  std::string_view bracketed = message;
  if (bracketed.starts_with('[')) {
    bracketed.remove_prefix(1);
    if (const auto packed = take_packed(bracketed)) found.ports.push_back(*packed);
  }
  for (std::size_t i = 0; i < message.size(); ++i) {
    if (i > 0 && is_word(message[i - 1])) continue;
    const std::string_view here = message.substr(i);
    read_interface(here, found);
    for (const clue &one : clues) {
      if (!begins_with(here, one.before)) continue;
      const std::string_view behind = here.substr(one.before.size());
      if (!behind.empty() && (is_word(behind.front()) || behind.front() == '/')) continue;
      read_behind(one, behind, found);
    }
  }
  return found;
}

}  // namespace

bool port_lines::has(const trace_line &line) {
  const found_names found = names_in(line.message);
  const bool names_one_port =
      !found.ports.empty() && std::all_of(found.ports.begin(), found.ports.end(),
                                          [&](std::uint32_t one) { return one == found.ports[0]; });
  if (names_one_port) {
    for (const std::uint32_t handle : found.handles) handles_[handle] = found.ports[0];
  }
  const auto is_mine = [this](std::uint32_t handle) {
    const auto known = handles_.find(handle);
    return known != handles_.end() && known->second == rsip_;
  };
  return std::find(found.ports.begin(), found.ports.end(), rsip_) != found.ports.end() ||
         std::find(found.partial.begin(), found.partial.end(), rsip_ & 0xFFFF) !=
             found.partial.end() ||
         std::any_of(found.handles.begin(), found.handles.end(), is_mine);
}

}  // namespace lumctl
