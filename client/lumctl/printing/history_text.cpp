#include "printing/history_text.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "printing/line.h"
#include "printing/polling_text.h"
#include "printing/port_cells.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

constexpr std::array<std::string_view, 8> bars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::size_t width_of_name = 11;
constexpr std::size_t width_of_numbers = 24;  // three of them
constexpr std::size_t narrowest = 8;
constexpr std::size_t width_in_a_file = 60;
constexpr double old_after = 15;  // seconds: three polls
constexpr double rounding = 1e-6;
constexpr double quiet_db = 0.5;  // a power that moves less fills no row: that is noise

// The time that the rows stand for, and how many places they have.
struct frame {
  double from = 0;
  double to = 0;
  std::size_t places = 0;

  std::size_t place_of(double time) const {
    if (to <= from) return 0;
    const double share = std::clamp((time - from) / (to - from), 0.0, 1.0);
    return std::min(places - 1, static_cast<std::size_t>(share * static_cast<double>(places)));
  }
};

struct point {
  double time = 0;
  double value = 0;
};

struct series {
  std::vector<point> points;
  std::size_t left_out = 0;   // that no module can have measured
  bool is_known_now = false;  // the latest poll is among the points
};

std::size_t places_for(const style &output) {
  if (output.columns == 0) return width_in_a_file;
  const std::size_t others = width_of_name + 1 + width_of_numbers;
  return output.columns < others + narrowest ? narrowest : output.columns - others;
}

series series_of(const json &answer, const json &reading) {
  const json &times = answer.at("times");
  series found;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const double time = times.at(i).get<double>();
    const json &value = reading.at("values").at(i);
    found.is_known_now = value.is_number();
    if (value.is_number()) {
      found.points.push_back({time, value.get<double>()});
    } else {
      ++found.left_out;
    }
  }
  return found;
}

// In each place what is farthest from the average: what lasted one poll is seen too. A place
// without a poll is blank. What moves less than `least_range` stays in the middle.
std::string bars_of(const std::vector<point> &points, const frame &within, double least_range) {
  double sum = 0;
  for (const point &one : points) sum += one.value;
  const double average = sum / static_cast<double>(points.size());
  std::vector<std::optional<double>> shown(within.places);
  for (const point &one : points) {
    auto &place = shown[within.place_of(one.time)];
    if (!place || std::abs(one.value - average) > std::abs(*place - average)) place = one.value;
  }
  const auto [low, high] =
      std::minmax_element(points.begin(), points.end(),
                          [](const point &a, const point &b) { return a.value < b.value; });
  const double range = std::max(high->value - low->value, least_range);
  const double bottom = (low->value + high->value - range) / 2;
  std::string text;
  for (const auto &value : shown) {
    if (!value) {
      text += ' ';
      continue;
    }
    const double share = range > 0 ? (*value - bottom) / range : 0.5;
    const double level = share * static_cast<double>(bars.size()) + rounding;
    text += bars.at(std::min(bars.size() - 1, static_cast<std::size_t>(level)));
  }
  return text;
}

// In UTC, as all times of the driver.
std::tm parts_of(double time) { return fmt::gmtime(static_cast<std::time_t>(time)); }

std::string clock_text(double time) { return fmt::format("{:%H:%M}", parts_of(time)); }

std::string numbers_of(const series &one, int digits) {
  const auto number = [digits](const std::optional<double> &value) {
    return value ? fmt::format("{:>8.{}f}", *value, digits) : fmt::format("{:>8}", "-");
  };
  if (one.points.empty()) return number({}) + number({}) + number({});
  const auto [low, high] =
      std::minmax_element(one.points.begin(), one.points.end(),
                          [](const point &a, const point &b) { return a.value < b.value; });
  return number(low->value) + number(high->value) +
         number(one.is_known_now ? std::optional(one.points.back().value) : std::nullopt);
}

std::string name_of_reading(const json &reading) {
  const std::string name = text_or_dash(reading.at("name"));
  return reading.at("unit").is_null() ? name : name + " " + text_or_dash(reading.at("unit"));
}

std::string head_line(const frame &within, const json &sub_port, const style &output) {
  const std::string title = fmt::format("sub-port {}", sub_port.get<unsigned>());
  std::string from = clock_text(within.from);
  const std::string to = clock_text(within.to);
  const std::size_t gap =
      within.places > from.size() + to.size() ? within.places - from.size() - to.size() : 1;
  const std::string line = fmt::format("{:<{}} {}{}{}{:>8}{:>8}{:>8}", title, width_of_name, from,
                                       std::string(gap, ' '), to, "LOWEST", "HIGHEST", "LAST");
  return painted(output, line, colour::faint) + "\n";
}

}  // namespace

void keep_polls_since(double not_before, json &answer) {
  json &times = answer.at("times");
  const auto first = std::find_if(times.begin(), times.end(), [&](const json &time) {
    return time.get<double>() >= not_before;
  });
  const auto earlier = first - times.begin();
  times.erase(times.begin(), first);
  for (json &reading : answer.at("readings")) {
    json &values = reading.at("values");
    values.erase(values.begin(),
                 values.begin() + std::min<std::ptrdiff_t>(earlier, values.end() - values.begin()));
  }
}

std::string describe_history(const json &answer, const style &output) {
  const std::string port = text_or_dash(answer.at("port"));
  const json &times = answer.at("times");
  const std::string halt = describe_halt(answer.at("halt"));
  const std::size_t polls = times.size();
  if (polls == 0) {
    return folded_lines(
               fmt::format(
                   "nothing is known: no poll of port {} in that time has read its module\n", port),
               output) +
           folded_notes(halt, output);
  }
  const frame within = {times.front().get<double>(), answer.at("now").get<double>(),
                        places_for(output)};
  std::string text = folded_lines(
      fmt::format("Port {}: {} from {:%Y-%m-%d %H:%M:%S} to {:%H:%M:%S} UTC\n", port,
                  lum_wording::counted(polls, "poll"), parts_of(within.from), parts_of(within.to)),
      output);
  std::string notes;
  json sub_port;
  for (const json &reading : answer.at("readings")) {
    if (reading.at("sub_port") != sub_port) {
      sub_port = reading.at("sub_port");
      text += "\n" + head_line(within, sub_port, output);
    }
    const series one = series_of(answer, reading);
    const std::string name = name_of_reading(reading);
    const bool is_power = !reading.at("unit").is_null();
    const std::string shown = one.points.empty()
                                  ? std::string(within.places, ' ')
                                  : bars_of(one.points, within, is_power ? quiet_db : 0);
    text +=
        fmt::format("{:<{}} {}{}\n", name, width_of_name, shown, numbers_of(one, is_power ? 2 : 1));
    if (one.left_out == 0) continue;
    notes += fmt::format("sub-port {}: {} of {} left out, which no module can have measured\n",
                         sub_port.get<unsigned>(), lum_wording::counted(one.left_out, "reading"),
                         text_or_dash(reading.at("name")));
  }
  const double age = within.to - times.back().get<double>();
  if (age > old_after) notes += fmt::format("the latest poll ended {:.0f} s ago\n", age);
  notes += halt;
  return text + (notes.empty() ? "" : "\n" + folded_notes(notes, output));
}

}  // namespace lumctl
