// What the library did to its platform: every service call, callback and trace line, in order.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace support {

struct trace_line {
  std::string channel;  // lum_info, lum_error, lum_debug, or "closed" before it is opened
  uint32_t point = 0;
  uint32_t nargs = 0;
  std::string signature;
  std::string format;
  std::string file;
  std::string tag;
  std::string text;  // the formatted message behind the prefix
};
std::ostream &operator<<(std::ostream &out, const trace_line &line);

struct event {
  std::string name;  // of the call; ctrace_internal for a trace line
  std::string text;  // led_set_state(0x30007, 0, 3), or LUM_INFO: message
  std::optional<trace_line> trace;
};

// Safe from any thread.
void record_call(std::string_view name, std::vector<std::string> arguments);
void record_trace(const trace_line &line);

// Runs with every trace line, on its thread, once the line is recorded. Not itself for lines that
// it causes. To be set while nothing traces.
extern std::function<void(const trace_line &)> &at_trace;

// From now on trace lines go to standard error too, where a test of the process's end can see them.
void echo_traces();

// Forgets what has been recorded.
void clear_record();

// The calls made so far, in order; traces are left out. With names: only those calls.
std::vector<std::string> calls();
std::vector<std::string> calls(std::initializer_list<std::string_view> names);
std::vector<trace_line> traces();

// The named calls and all traces of the library, in order.
std::vector<std::string> story(std::initializer_list<std::string_view> names);

// Arguments as the record shows them: numbers in decimal, texts in quotes, pointers as set or null.
// Wrap a number in hex for the other form.
struct hex {
  uint64_t value;
};

std::string shown(hex number);
std::string shown(const char *text);
std::string shown(const void *pointer);
template <std::integral Number>
std::string shown(Number number) {
  return std::to_string(number);
}

// Notes one call with its arguments.
template <typename... Arguments>
void note(std::string_view name, const Arguments &...arguments) {
  record_call(name, {shown(arguments)...});
}

}  // namespace support
