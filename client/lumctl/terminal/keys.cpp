#include "terminal/keys.h"

#include <array>
#include <utility>

namespace lumctl {
namespace {

constexpr char escape_byte = '\x1b';

// What follows the escape, from xterm's and from the console's keys.
constexpr std::array<std::pair<std::string_view, key_kind>, 16> sequences = {{
    {"[A", key_kind::up},
    {"OA", key_kind::up},
    {"[B", key_kind::down},
    {"OB", key_kind::down},
    {"[5~", key_kind::page_up},
    {"[6~", key_kind::page_down},
    {"[H", key_kind::home},
    {"OH", key_kind::home},
    {"[1~", key_kind::home},
    {"[7~", key_kind::home},
    {"[F", key_kind::end},
    {"OF", key_kind::end},
    {"[4~", key_kind::end},
    {"[8~", key_kind::end},
    {"OM", key_kind::enter},
    {"[3~", key_kind::backspace},
}};

bool ends_sequence(char byte) { return byte >= '@' && byte <= '~'; }

// The length of the sequence behind an escape; 0 when it has not come whole.
std::size_t length_of_sequence(std::string_view text) {
  if (text.empty()) return 0;
  if (text[0] == 'O') return text.size() < 2 ? 0 : 2;
  if (text[0] != '[') return 1;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (ends_sequence(text[i])) return i + 1;
  }
  return 0;
}

key key_of_sequence(std::string_view text) {
  for (const auto &[sequence, kind] : sequences) {
    if (sequence == text) return {kind};
  }
  return {key_kind::other};
}

std::size_t length_of_character(unsigned char first) {
  return first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

key key_of_byte(char byte) {
  switch (byte) {
    case '\r':
    case '\n':
      return {key_kind::enter};
    case '\x7f':
    case '\b':
      return {key_kind::backspace};
    default:
      return static_cast<unsigned char>(byte) < ' ' ? key{key_kind::other}
                                                    : key{key_kind::character, {byte}};
  }
}

}  // namespace

std::vector<key> key_reader::take(std::string_view bytes) {
  pending_ += bytes;
  std::vector<key> keys;
  while (!pending_.empty() && take_one(keys)) {
  }
  return keys;
}

std::vector<key> key_reader::take_rest() {
  std::vector<key> keys;
  if (pending_.empty()) return keys;
  keys.push_back(
      {pending_ == std::string_view(&escape_byte, 1) ? key_kind::escape : key_kind::other});
  pending_.clear();
  return keys;
}

// Returns whether there was a whole one.
bool key_reader::take_one(std::vector<key> &keys) {
  const std::string_view text = pending_;
  std::size_t length = 1;
  if (text[0] == escape_byte) {
    const std::size_t behind = length_of_sequence(text.substr(1));
    if (behind == 0) return false;
    length += behind;
    keys.push_back(key_of_sequence(text.substr(1, behind)));
  } else if (static_cast<unsigned char>(text[0]) >= 0x80) {
    length = length_of_character(static_cast<unsigned char>(text[0]));
    if (text.size() < length) return false;
    keys.push_back({key_kind::character, std::string(text.substr(0, length))});
  } else {
    keys.push_back(key_of_byte(text[0]));
  }
  pending_.erase(0, length);
  return true;
}

}  // namespace lumctl
