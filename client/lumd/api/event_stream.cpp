#include "api/event_stream.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <utility>

#include "node/driver.h"
#include "views/event_view.h"

namespace lumd {
namespace {

constexpr std::size_t most_at_once = 100;

// So long a reader waits before it comes back to a driver that has gone.
constexpr unsigned retry_ms = 2000;

std::string to_text(const std::string &kind, const json &document) {
  return fmt::format("event: {}\ndata: {}\n\n", kind,
                     document.dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace

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
