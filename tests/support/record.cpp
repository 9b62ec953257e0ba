#include "record.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

#include "director.h"
#include "spin.h"

namespace support {
namespace {

// Never destroyed: the polling thread outlives main.
struct event_log {
  spin lock;
  std::vector<event> events;
  bool echo = false;  // trace lines
};

event_log &the_log() {
  static event_log &log = *new event_log;
  return log;
}

template <typename Visit>
void for_each_event(Visit visit) {
  event_log &log = the_log();
  const std::lock_guard hold(log.lock);
  for (const event &each : log.events) visit(each);
}

void append(event what) {
  event_log &log = the_log();
  const std::lock_guard hold(log.lock);
  if (log.echo && what.trace) std::fprintf(stderr, "%s\n", what.text.c_str());
  log.events.push_back(std::move(what));
}

bool is_one_of(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::function<void(const trace_line &)> &at_trace = *new std::function<void(const trace_line &)>;

std::ostream &operator<<(std::ostream &out, const trace_line &line) {
  return out << line.channel << " point " << line.point << " [" << line.file << "]" << line.tag
             << ":" << line.text << " (" << line.signature << ")";
}

void record_call(std::string_view name, std::vector<std::string> arguments) {
  std::string text = std::string(name) + "(";
  for (std::size_t i = 0; i < arguments.size(); ++i) text += (i == 0 ? "" : ", ") + arguments[i];
  text += ")";
  if (thread_director *chooser = directed()) return chooser->at_call(name, text);
  append({std::string(name), std::move(text), std::nullopt});
}

void record_trace(const trace_line &line) {
  std::string text = line.tag + ": " + line.text;
  if (thread_director *chooser = directed()) return chooser->at_call("ctrace_internal", text);
  append({"ctrace_internal", std::move(text), line});
  static thread_local bool busy = false;
  if (busy || !at_trace) return;
  busy = true;
  at_trace(line);
  busy = false;
}

void echo_traces() {
  event_log &log = the_log();
  const std::lock_guard hold(log.lock);
  log.echo = true;
}

void clear_record() {
  event_log &log = the_log();
  const std::lock_guard hold(log.lock);
  log.events.clear();
}

std::vector<std::string> calls() {
  std::vector<std::string> found;
  for_each_event([&](const event &each) {
    if (!each.trace) found.push_back(each.text);
  });
  return found;
}

std::vector<std::string> calls(std::initializer_list<std::string_view> names) {
  std::vector<std::string> found;
  for_each_event([&](const event &each) {
    if (!each.trace && is_one_of(each.name, names)) found.push_back(each.text);
  });
  return found;
}

std::vector<trace_line> traces() {
  std::vector<trace_line> found;
  for_each_event([&](const event &each) {
    if (each.trace) found.push_back(*each.trace);
  });
  return found;
}

std::vector<std::string> story(std::initializer_list<std::string_view> names) {
  std::vector<std::string> found;
  for_each_event([&](const event &each) {
    if (each.trace || is_one_of(each.name, names)) found.push_back(each.text);
  });
  return found;
}

std::string shown(hex number) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number.value));
  return text;
}

std::string shown(const char *text) {
  return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

std::string shown(const void *pointer) { return pointer == nullptr ? "null" : "set"; }

}  // namespace support
