#include "api/event_stream.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "node/driver.h"
#include "node/split.h"
#include "views/event_view.h"

namespace lumd {
namespace {

constexpr std::size_t most_at_once = 100;

// So long a reader waits before it comes back to a driver that has gone.
constexpr unsigned retry_ms = 2000;

// A part of a header's list, without blanks and in small letters.
std::string folded(std::string_view part) {
  std::string text;
  for (const char c : part) {
    if (c != ' ' && c != '\t') text += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  }
  return text;
}

// "q=0", "q=0.00": it is named as what is not wanted.
bool is_refused(std::string_view parameter) {
  return parameter.starts_with("q=") &&
         parameter.find_first_not_of("0.", 2) == std::string_view::npos;
}

std::string to_text(const std::string &kind, const json &document) {
  return fmt::format("event: {}\ndata: {}\n\n", kind,
                     document.dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace

bool accepts_event_stream(std::string_view accept) {
  for (const std::string_view range : split(accept, ',')) {
    const auto parts = split(range, ';');
    if (folded(parts.front()) != "text/event-stream") continue;
    return std::none_of(parts.begin() + 1, parts.end(),
                        [](std::string_view one) { return is_refused(folded(one)); });
  }
  return false;
}

// A reader that is too slow for what happens learns how much it has missed.
std::string event_stream::next() {
  if (!std::exchange(has_begun_, true)) return fmt::format("retry: {}\n\n", retry_ms);
  for (;;) {
    const auto found = node_.events().after(since_, most_at_once);
    if (found.events.empty()) return {};
    std::string text;
    const uint64_t first = found.events.front().number;
    if (since_ != 0 && first == found.first && first > since_ + 1) {
      text += to_text("missed", {{"after", since_}, {"before", first}});
    }
    for (const event &one : found.events) {
      since_ = one.number;
      if (!port_.empty() && one.port != port_) continue;
      text += fmt::format("id: {}\n", one.number) + to_text(one.kind, show_event(one));
    }
    if (!text.empty()) return text;
  }
}

}  // namespace lumd
