#include "description/toml_depth.h"

#include <cctype>

namespace lum_linux {
namespace {

bool is_key_letter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

// Where the text behind the one that begins at `begin` with a quote goes on.
std::size_t behind_quotes(std::string_view text, std::size_t begin, uint32_t &line) {
  const char quote = text[begin];
  const std::string_view three = text.substr(begin, 3);
  const bool is_long = three == std::string_view("\"\"\"") || three == std::string_view("'''");
  std::size_t at = begin + (is_long ? 3 : 1);
  for (; at < text.size(); ++at) {
    if (text[at] == '\\' && quote == '"') {
      ++at;
    } else if (is_long ? text.substr(at, 3) == three : text[at] == quote) {
      return at + (is_long ? 3 : 1);
    } else if (text[at] == '\n') {
      if (!is_long) return at;  // not closed: the parser says so
      ++line;
    }
  }
  return text.size();
}

}  // namespace

std::optional<uint32_t> find_deep_toml_key(std::string_view text) {
  uint32_t line = 1;
  std::size_t dots = 0;  // in the key, or what looks like one, that is being read
  bool part_open = false;
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '#') {
      while (at < text.size() && text[at] != '\n') ++at;
      continue;
    }
    if (c == '"' || c == '\'') {
      at = behind_quotes(text, at, line);
      part_open = true;
      continue;
    }
    if (c == '.' && part_open) {
      part_open = false;
      if (++dots >= deepest_toml_key) return line;
    } else if (is_key_letter(c)) {
      part_open = true;
    } else if (c != ' ' && c != '\t') {
      dots = 0;
      part_open = false;
      if (c == '\n') ++line;
    }
    ++at;
  }
  return {};
}

}  // namespace lum_linux
