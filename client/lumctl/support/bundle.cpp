#include "support/bundle.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>

#include "base/printable.h"

namespace lumctl {
namespace {

constexpr std::size_t longest_item = std::size_t{8} * 1024 * 1024;

constexpr std::string_view key_begins = "-----BEGIN ";
constexpr std::string_view key_ends = "-----END ";
constexpr std::string_view private_key = "PRIVATE KEY-----";
constexpr auto secret_names =
    std::to_array<std::string_view>({"password", "passphrase", "secret", "token"});

bool is_secret_name(std::string_view name) {
  std::string in_small(name);
  std::transform(in_small.begin(), in_small.end(), in_small.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::any_of(secret_names.begin(), secret_names.end(), [&](std::string_view secret) {
    return in_small.find(secret) != std::string::npos;
  });
}

// Behind which '=' of the line the value of a key named like a password stands; npos: behind none.
std::size_t secret_value(std::string_view line) {
  constexpr std::string_view of_keys =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.\"'";
  for (std::size_t at = line.find('='); at != std::string_view::npos; at = line.find('=', at + 1)) {
    const std::size_t last = line.substr(0, at).find_last_not_of(" \t");
    if (last == std::string_view::npos) continue;
    const std::size_t before = line.substr(0, last + 1).find_last_not_of(of_keys);
    const std::size_t first = before == std::string_view::npos ? 0 : before + 1;
    if (is_secret_name(line.substr(first, last + 1 - first))) return at;
  }
  return std::string_view::npos;
}

// What ends a text of several lines that the value begins, or nothing.
std::string_view end_of_long_text(std::string_view value) {
  for (const std::string_view mark : {R"(""")", "'''"}) {
    const std::size_t begin = value.find(mark);
    if (begin == std::string_view::npos) continue;
    if (value.find(mark, begin + mark.size()) == std::string_view::npos) return mark;
  }
  return {};
}

bool is_within(char c, unsigned lowest, unsigned highest) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= lowest && byte <= highest;
}

// How many bytes the UTF-8 character takes that the text begins with; 0 when it begins with none.
std::size_t character_at(std::string_view text) {
  const char first = text.front();
  const std::size_t length = is_within(first, 0x00, 0x7F)   ? 1
                             : is_within(first, 0xC2, 0xDF) ? 2
                             : is_within(first, 0xE0, 0xEF) ? 3
                             : is_within(first, 0xF0, 0xF4) ? 4
                                                            : 0;
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!is_within(text[i], 0x80, 0xBF)) return 0;
  }
  const bool is_overlong = (is_within(first, 0xE0, 0xE0) && is_within(text[1], 0x80, 0x9F)) ||
                           (is_within(first, 0xF0, 0xF0) && is_within(text[1], 0x80, 0x8F));
  const bool is_none = (is_within(first, 0xED, 0xED) && is_within(text[1], 0xA0, 0xBF)) ||
                       (is_within(first, 0xF4, 0xF4) && is_within(text[1], 0x90, 0xBF));
  return is_overlong || is_none ? 0 : length;
}

std::string on_one_line(std::string_view text) {
  return lum_client::printable(without_control_characters(text));
}

}  // namespace

void bundle::add(std::string_view name, std::string_view content, std::string note) {
  if (content.size() > longest_item) {
    note += fmt::format("{}only the last {} bytes of {}", note.empty() ? "" : "; ", longest_item,
                        content.size());
    content.remove_prefix(content.size() - longest_item);
  }
  items_.push_back({on_one_line(name), without_control_characters(content), true, std::move(note),
                    std::chrono::system_clock::now()});
}

void bundle::miss(std::string_view name, std::string why) {
  items_.push_back({without_control_characters(name),
                    {},
                    false,
                    std::move(why),
                    std::chrono::system_clock::now()});
}

std::size_t bundle::missing() const {
  return static_cast<std::size_t>(std::count_if(
      items_.begin(), items_.end(), [](const bundle_item &item) { return !item.is_there; }));
}

std::string bundle::manifest(const std::string &head) const {
  std::string text = head;
  for (const bundle_item &item : items_) {
    const std::string size = item.is_there ? std::to_string(item.content.size()) : "missing";
    text += fmt::format("{} {:>9} {}{}\n", utc_text(item.when), size, item.name,
                        item.note.empty() ? "" : ": " + on_one_line(item.note));
  }
  return without_control_characters(text);
}

std::string without_control_characters(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = character_at(text);
    const auto byte = static_cast<unsigned char>(text.front());
    const bool is_control = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F ||
                            (length == 2 && byte == 0xC2 && is_within(text[1], 0x80, 0x9F));
    if (length == 0 || is_control) {
      for (const char c : text.substr(0, std::max<std::size_t>(length, 1))) {
        result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
      }
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

std::string without_secrets(std::string_view text) {
  std::string result;
  std::string_view until;  // a line has this, lines are left out
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!until.empty()) {
      if (line.find(until) != std::string_view::npos) until = {};
    } else if (line.find(key_begins) != std::string_view::npos &&
               line.find(private_key) != std::string_view::npos) {
      result += "# a private key is left out\n";
      if (line.find(key_ends) == std::string_view::npos) until = key_ends;
    } else if (const std::size_t value = secret_value(line); value != std::string_view::npos) {
      result += std::string(line.substr(0, value)) + "= \"(left out)\"\n";
      until = end_of_long_text(line.substr(value));
    } else {
      result += std::string(line) + "\n";
    }
  }
  return result;
}

std::string utc_text(std::chrono::system_clock::time_point moment) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
  std::tm parts = {};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text;
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

}  // namespace lumctl
