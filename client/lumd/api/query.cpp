#include "api/query.h"

#include <fmt/format.h>

#include <algorithm>

#include "node/split.h"
#include "wording/nearest.h"

namespace lumd {
namespace {

std::optional<unsigned> hex_digit(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return std::nullopt;
}

std::string unknown_member(const std::string &name, std::span<const std::string_view> known) {
  if (known.empty()) return fmt::format("there is no \"{}\" here, expected no query", name);
  return fmt::format("there is no \"{}\" in the query here, expected one of {}{}", name,
                     fmt::join(known, ", "), lum_wording::did_you_mean(name, known));
}

}  // namespace

std::optional<std::string> percent_decode(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const auto high = hex_digit(text[i + 1]);
    const auto low = hex_digit(text[i + 2]);
    if (!high || !low) return std::nullopt;
    result += static_cast<char>(*high << 4 | *low);
    i += 2;
  }
  return result;
}

std::string read_query(std::string_view text, std::span<const std::string_view> known,
                       query_members &query) {
  for (const std::string_view pair : split(text, '&')) {
    if (pair.empty()) continue;
    const std::size_t equals = pair.find('=');
    const auto name = percent_decode(pair.substr(0, equals));
    const auto value = percent_decode(equals == std::string_view::npos ? std::string_view()
                                                                       : pair.substr(equals + 1));
    if (!name || !value) return "the query is not properly encoded";
    if (std::find(known.begin(), known.end(), *name) == known.end()) {
      return unknown_member(*name, known);
    }
    if (!query.emplace(*name, *value).second) {
      return fmt::format("the query has \"{}\" twice", *name);
    }
  }
  return {};
}

}  // namespace lumd
