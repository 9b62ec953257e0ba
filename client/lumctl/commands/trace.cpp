// The traces of the library, read from their files, and the latest from their rings.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <thread>

#include "base/output.h"
#include "command_line/moment.h"
#include "command_line/status.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "names.h"
#include "terminal/printable.h"
#include "trace/port_lines.h"
#include "trace/trace_files.h"
#include "trace/trace_source.h"
#include "trace_points.h"
#include "words/schema.h"
#include "words/trace_channels.h"

namespace lumctl {
namespace {

using std::chrono::microseconds;

// How often the files are looked at, and how many lines that are there already come first unless
// --since says otherwise.
constexpr std::chrono::milliseconds between_looks(200);
constexpr std::size_t lines_before = 10;

trace_time time_now() {
  return std::chrono::time_point_cast<microseconds>(std::chrono::system_clock::now());
}

// Which lines are wanted. Each has to be asked about, in the order of their time.
class selection {
 public:
  selection(const given &words, const trace_source &source)
      : area_(words.text("area")), channel_(words.text("channel")) {
    if (words.has("point")) point_ = words.whole("point");
    if (words.has("since")) since_ = read_moment(words.text("since"), time_now());
    if (!source.port) return;
    port_.emplace(*source.port);
    for (const std::uint32_t handle : source.ifhandles) port_->know_handle(handle);
  }

  bool takes(const trace_line &line) {
    const bool is_of_port = !port_ || port_->has(line);
    return is_of_port && (!point_ || line.point == *point_) &&
           (area_.empty() || line.area == area_) &&
           (channel_.empty() || line.channel == channel_) && (!since_ || line.time >= *since_);
  }

  bool has_beginning() const { return since_.has_value(); }

 private:
  std::optional<port_lines> port_;
  std::optional<std::uint32_t> point_;
  std::string area_;
  std::string channel_;
  std::optional<trace_time> since_;
};

json document_of(const trace_line &line) {
  const auto text_or_null = [](const std::string &text) {
    return text.empty() ? json() : json(text);
  };
  const bool is_known = line.point != 0;
  json shown = {{"time", nullptr},
                {"channel", line.channel},
                {"process", text_or_null(line.process)},
                {"point", nullptr},
                {"area", text_or_null(line.area)},
                {"tid", nullptr},
                {"tag", text_or_null(line.tag)},
                {"text", is_known ? line.message : line.whole}};
  if (is_known) shown["time"] = line.whole.substr(0, line.whole.find(' '));
  if (is_known) shown["point"] = line.point;
  if (line.thread) shown["tid"] = *line.thread;
  return shown;
}

std::string on_one_line(const json &document) {
  return document.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

class tracer {
 public:
  tracer(const session &now, const given &words, const trace_source &source)
      : now_(now), as_json_(wants_json(words)), wanted_(words, source) {
    std::set<std::string> names(lum_words::trace_channels.begin(), lum_words::trace_channels.end());
    for (std::string &name : channels_in(source.folder)) names.insert(std::move(name));
    for (const std::string &name : names) channels_.emplace_back(source.folder, name);
  }

  int show() {
    std::vector<std::vector<std::string>> latest;
    for (const trace_channel &channel : channels_) latest.push_back(channel.latest());
    std::vector<std::vector<trace_line>> read = read_on();
    for (std::size_t i = 0; i < read.size(); ++i) {
      channels_[i].end_line(read[i]);
      channels_[i].add_latest(latest[i], read[i]);
    }
    const std::vector<trace_line> lines = wanted_lines(std::move(read));
    if (as_json_) {
      json all = json::array();
      for (const trace_line &line : lines) all.push_back(document_of(line));
      const json document = {{"schema", lum_words::api_schema}, {"lines", std::move(all)}};
      lum_client::print(document.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
    } else {
      put(lines);
    }
    return conclude();
  }

  int follow() {
    std::vector<trace_line> lines = wanted_lines(read_on());
    const std::size_t old =
        wanted_.has_beginning() ? 0 : lines.size() - std::min(lines.size(), lines_before);
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(old));
    put(lines);
    conclude();
    for (;;) {
      std::this_thread::sleep_for(between_looks);
      put(wanted_lines(read_settled()));
    }
  }

 private:
  std::vector<std::vector<trace_line>> read_on() {
    std::vector<std::vector<trace_line>> lines;
    for (trace_channel &channel : channels_) lines.push_back(channel.read_on());
    return lines;
  }

  // A channel that was looked at first may have got a line while the others were looked at. So what
  // is younger than the look waits for the next one, and no longer, for the clock may be set back.
  std::vector<std::vector<trace_line>> read_settled() {
    const trace_time begun = time_now();
    std::vector<std::vector<trace_line>> lines = read_on();
    waiting_.resize(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
      const auto young = std::find_if(lines[i].begin(), lines[i].end(),
                                      [&](const trace_line &line) { return line.time >= begun; });
      std::vector<trace_line> next(std::make_move_iterator(young),
                                   std::make_move_iterator(lines[i].end()));
      lines[i].erase(young, lines[i].end());
      waiting_[i].insert(waiting_[i].end(), std::make_move_iterator(lines[i].begin()),
                         std::make_move_iterator(lines[i].end()));
      lines[i] = std::exchange(waiting_[i], std::move(next));
    }
    return lines;
  }

  std::vector<trace_line> wanted_lines(std::vector<std::vector<trace_line>> channels) {
    std::vector<trace_line> lines = in_order_of_time(std::move(channels));
    std::erase_if(lines, [this](const trace_line &line) { return !wanted_.takes(line); });
    return lines;
  }

  void put(const std::vector<trace_line> &lines) {
    std::string text;
    for (const trace_line &line : lines) {
      const bool is_error = line.channel == lum_words::error_channel;
      text += as_json_ ? on_one_line(document_of(line))
                       : painted(now_.output, printable(line.whole),
                                 is_error ? colour::bad : colour::none) +
                             "\n";
    }
    if (!text.empty()) lum_client::print(text);
  }

  // What could not be read is no reason to keep the rest back.
  int conclude() const {
    std::string problems;
    for (const trace_channel &channel : channels_) {
      if (channel.problem().empty()) continue;
      problems += (problems.empty() ? "" : "; ") + printable(channel.problem());
    }
    if (problems.empty()) return exit_done;
    return fail(exit_refused, "not all traces can be read: " + problems);
  }

  const session &now_;
  bool as_json_;
  selection wanted_;
  std::vector<trace_channel> channels_;
  std::vector<std::vector<trace_line>> waiting_;  // of each channel
};

int trace(const session &now, const given &words) {
  const trace_source source =
      find_traces(now, {words.text("name"), words.text("directory"), words.text("config")});
  if (!source.wrong.empty()) return fail(source.status, source.wrong);
  std::error_code code;
  if (!std::filesystem::is_directory(source.folder, code)) {
    return fail(exit_refused, fmt::format("{}: {}, expected the folder of the traces",
                                          printable(source.folder.string()),
                                          code ? code.message() : "no folder"));
  }
  tracer reader(now, words, source);
  return words.has("follow") ? reader.follow() : reader.show();
}

std::vector<std::string> areas() {
  std::vector<std::string> names;
  for (const lum_trace::point &point : lum_trace::points) {
    if (std::find(names.begin(), names.end(), point.area) == names.end()) {
      names.emplace_back(point.area);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

// With the points beside it, and whose they are.
std::string wrong_with_point(const std::string &text) {
  const unsigned long number = std::strtoul(text.c_str(), nullptr, 0);
  const auto *behind =
      std::find_if(lum_trace::points.begin(), lum_trace::points.end(),
                   [number](const lum_trace::point &point) { return point.number >= number; });
  if (behind != lum_trace::points.end() && behind->number == number) return {};
  std::string near;
  if (behind != lum_trace::points.begin()) {
    near += fmt::format("{} of {}", (behind - 1)->number, (behind - 1)->area);
  }
  if (behind != lum_trace::points.end()) {
    near += fmt::format("{}{} of {}", near.empty() ? "" : " and ", behind->number, behind->area);
  }
  return fmt::format("there is no trace point {}, the nearest are {}", text, near);
}

}  // namespace

command trace_command() {
  const value any_point = {.kind = value_kind::whole, .wrong = wrong_with_point};
  const value a_moment = {.wrong = wrong_with_moment};
  return {.name = "trace",
          .help = "Lines of the traces in the order of their time, of all ports or one",
          .arguments = {optional_port_name()},
          .options = {{"point", "Only lines of this trace point", any_point},
                      {"area", "Only lines of this area of the library",
                       value{.words = areas(), .only_words = true}},
                      {"channel", "Only lines of this channel",
                       value{.words = as_words(lum_words::trace_channels), .only_words = true}},
                      {"since", "From then on: 10m, 2h30m, 08:00, 2026-01-31T08:00:00Z", a_moment},
                      {"follow", "Go on with what is traced from now on, until interrupted"},
                      {"directory", "The folder of the traces; then no driver is asked", value{}},
                      {"config", "The node's description, instead of asking the driver", value{}}},
          .action = trace,
          .on_node = true};
}

}  // namespace lumctl
