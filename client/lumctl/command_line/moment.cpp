#include "command_line/moment.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <ctime>
#include <string_view>

namespace lumctl {
namespace {

using std::chrono::microseconds;
using std::chrono::system_clock;

struct unit {
  std::string_view name;
  double seconds;
};
constexpr auto units = std::to_array<unit>(
    {{"ms", 0.001}, {"min", 60}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}, {"w", 604800}});

constexpr double longest_seconds = 100.0 * 365 * 86400;

std::optional<microseconds> read_duration(std::string_view text) {
  double seconds = 0;
  if (text.empty()) return std::nullopt;
  while (!text.empty()) {
    double number = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (error != std::errc() || number < 0) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    const unit *found = nullptr;
    for (const unit &one : units) {
      if (found == nullptr && text.starts_with(one.name)) found = &one;
    }
    if (found == nullptr) return std::nullopt;
    text.remove_prefix(found->name.size());
    seconds += number * found->seconds;
  }
  if (seconds > longest_seconds) return std::nullopt;
  return microseconds(std::llround(seconds * 1e6));
}

// As strptime has them. Those without a date are of today.
struct wall_format {
  const char *text;
  bool has_date;
};
constexpr auto wall_formats = std::to_array<wall_format>({{"%Y-%m-%dT%H:%M:%S", true},
                                                          {"%Y-%m-%d %H:%M:%S", true},
                                                          {"%Y-%m-%dT%H:%M", true},
                                                          {"%Y-%m-%d %H:%M", true},
                                                          {"%Y-%m-%d", true},
                                                          {"%H:%M:%S", false},
                                                          {"%H:%M", false}});

// Takes ".5" off the end; 0 when there is none.
microseconds take_fraction(std::string &text) {
  const std::size_t point = text.find_last_of('.');
  if (point == std::string::npos || point + 1 == text.size()) return {};
  if (text.find_first_not_of("0123456789", point + 1) != std::string::npos) return {};
  double fraction = 0;
  const std::string digits = "0" + text.substr(point);
  std::from_chars(digits.data(), digits.data() + digits.size(), fraction);
  text.erase(point);
  return microseconds(std::llround(fraction * 1e6));
}

std::optional<moment> read_wall(std::string text, moment now) {
  const bool is_utc = text.ends_with('Z');
  if (is_utc) text.pop_back();
  const microseconds fraction = take_fraction(text);
  const std::time_t seconds_now = system_clock::to_time_t(now);
  for (const wall_format &one : wall_formats) {
    std::tm parts = {};
    if (!one.has_date) {
      is_utc ? ::gmtime_r(&seconds_now, &parts) : ::localtime_r(&seconds_now, &parts);
      parts.tm_sec = 0;
    }
    const char *end = ::strptime(text.c_str(), one.text, &parts);
    if (end == nullptr || *end != '\0') continue;
    const std::tm read = parts;
    parts.tm_isdst = -1;
    const std::time_t time = is_utc ? ::timegm(&parts) : std::mktime(&parts);
    // The 31st of February is another day.
    if (parts.tm_mday != read.tm_mday || parts.tm_mon != read.tm_mon) return std::nullopt;
    return moment(std::chrono::seconds(time)) + fraction;
  }
  return std::nullopt;
}

}  // namespace

std::optional<moment> read_moment(const std::string &text, moment now) {
  if (const auto duration = read_duration(text)) return now - *duration;
  return read_wall(text, now);
}

std::string wrong_with_moment(const std::string &text) {
  const auto now = std::chrono::time_point_cast<microseconds>(system_clock::now());
  if (read_moment(text, now)) return {};
  return fmt::format(
      "\"{}\" is no time, expected how long ago, such as 90s, 10m or 2h30m, or when, such as "
      "2026-01-31T08:00:00Z, \"2026-01-31 08:00\" or 08:00",
      text);
}

}  // namespace lumctl
