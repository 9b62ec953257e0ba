// One line of a trace, taken apart.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumctl {

using trace_time = std::chrono::sys_time<std::chrono::microseconds>;

struct trace_line {
  trace_time time;  // of a line that has none: that of the line before
  std::string channel;
  std::string whole;  // as it stands in the file, without its end
  // Of a line that is not as the driver writes them: nothing, 0 and empty.
  std::string process;
  std::uint32_t point = 0;
  std::string area;
  std::optional<std::uint32_t> thread;
  std::string tag;
  std::string message;
};

// A line of the channel's files; `before` is the time of the line before it.
trace_line read_trace_line(std::string_view text, const std::string &channel, trace_time before);

}  // namespace lumctl
