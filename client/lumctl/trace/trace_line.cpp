#include "trace/trace_line.h"

#include <charconv>

namespace lumctl {
namespace {

bool take(std::string_view &text, std::string_view what) {
  if (!text.starts_with(what)) return false;
  text.remove_prefix(what.size());
  return true;
}

template <typename Number>
bool take_number(std::string_view &text, Number &number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

// What stands before `end`, which is taken off with it.
bool take_until(std::string_view &text, std::string_view end, std::string &part) {
  const std::size_t at = text.find(end);
  if (at == std::string_view::npos) return false;
  part = text.substr(0, at);
  text.remove_prefix(at + end.size());
  return true;
}

// A number of exactly so many digits.
bool take_digits(std::string_view &text, std::size_t count, unsigned &number) {
  std::string_view digits = text.substr(0, count);
  if (digits.size() < count || !take_number(digits, number) || !digits.empty()) return false;
  text.remove_prefix(count);
  return true;
}

// "2026-01-31T08:00:00.123456Z"
bool take_time(std::string_view &text, trace_time &time) {
  using namespace std::chrono;
  unsigned y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, us = 0;
  if (!take_digits(text, 4, y) || !take(text, "-") || !take_digits(text, 2, mo) ||
      !take(text, "-") || !take_digits(text, 2, d) || !take(text, "T") ||
      !take_digits(text, 2, h) || !take(text, ":") || !take_digits(text, 2, mi) ||
      !take(text, ":") || !take_digits(text, 2, s) || !take(text, ".") ||
      !take_digits(text, 6, us) || !take(text, "Z")) {
    return false;
  }
  const year_month_day date{year(static_cast<int>(y)), month(mo), day(d)};
  if (!date.ok() || h > 23 || mi > 59 || s > 60) return false;
  time = trace_time(sys_days(date)) + hours(h) + minutes(mi) + seconds(s) + microseconds(us);
  return true;
}

// "[lum_api][tid:4711]LUM_INFO:"; not all that is traced begins so.
void take_origin(std::string_view &text, trace_line &line) {
  std::string_view rest = text;
  std::uint32_t thread = 0;
  if (!take(rest, "[") || !take_until(rest, "][tid:", line.area) || !take_number(rest, thread) ||
      !take(rest, "]") || !take_until(rest, ":", line.tag)) {
    line.area.clear();
    return;
  }
  line.thread = thread;
  text = rest;
}

}  // namespace

trace_line read_trace_line(std::string_view text, const std::string &channel, trace_time before) {
  trace_line line;
  line.time = before;
  line.channel = channel;
  line.whole = text;
  std::string_view rest = text;
  if (!take_time(rest, line.time)) return line;
  if (!take(rest, " [") || !take_until(rest, "] " + channel + " #", line.process) ||
      !take_number(rest, line.point) || !take(rest, " ")) {
    line.process.clear();
    return line;
  }
  take_origin(rest, line);
  line.message = rest;
  return line;
}

}  // namespace lumctl
