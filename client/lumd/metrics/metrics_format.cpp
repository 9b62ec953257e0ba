#include "metrics/metrics_format.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace lumd {
namespace {

// One range of an Accept header: how much it is liked, from 0 to 1.
struct media_range {
  std::string type;
  std::string version;
  double quality = 1;
};

// The text up to the separator, trimmed and in lower case; takes both off `rest`.
std::string next(std::string_view &rest, char separator) {
  const std::size_t end = std::min(rest.find(separator), rest.size());
  std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  const auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
  while (!part.empty() && is_blank(part.front())) part.remove_prefix(1);
  while (!part.empty() && is_blank(part.back())) part.remove_suffix(1);
  std::string text(part);
  for (char &c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// Something that is no number from 0 to 1 is not liked at all.
double quality_of(const std::string &text) {
  double value = 0;
  const char *end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, value, std::chars_format::fixed);
  const bool is_right = read.ec == std::errc() && read.ptr == end && value >= 0 && value <= 1;
  return is_right ? value : 0;
}

std::string unquoted(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
  return text;
}

media_range read_range(std::string_view text) {
  media_range range;
  range.type = next(text, ';');
  while (!text.empty()) {
    std::string_view parameter = text.substr(0, text.find(';'));
    text.remove_prefix(std::min(parameter.size() + 1, text.size()));
    const std::string name = next(parameter, '=');
    const std::string value = unquoted(next(parameter, '\0'));
    if (name == "q") range.quality = quality_of(value);
    if (name == "version") range.version = value;
  }
  return range;
}

bool is_openmetrics(const media_range &range) {
  return range.type == "application/openmetrics-text" &&
         (range.version.empty() || range.version == "1.0.0");
}

// How closely a range fits the Prometheus text format; 0: not at all.
int fits_prometheus(const media_range &range) {
  if (range.type == "text/plain" && (range.version.empty() || range.version == "0.0.4")) return 3;
  if (range.type == "text/*") return 2;
  return range.type == "*/*" ? 1 : 0;
}

}  // namespace

metrics_format metrics_format_for(std::string_view accept) {
  double openmetrics = 0;
  double prometheus = 0;
  int closest = 0;
  while (!accept.empty()) {
    const std::string_view one = accept.substr(0, accept.find(','));
    accept.remove_prefix(std::min(one.size() + 1, accept.size()));
    const media_range range = read_range(one);
    if (is_openmetrics(range)) openmetrics = std::max(openmetrics, range.quality);
    if (const int fit = fits_prometheus(range); fit > closest) {
      closest = fit;
      prometheus = range.quality;
    }
  }
  return openmetrics > 0 && openmetrics >= prometheus ? metrics_format::openmetrics
                                                      : metrics_format::prometheus;
}

}  // namespace lumd
