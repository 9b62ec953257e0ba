// What has happened, as a document or as it goes on.
#include <charconv>

#include "api/accept.h"
#include "api/event_stream.h"
#include "api/request_body.h"
#include "api/routes.h"
#include "node/driver.h"
#include "node/find_port.h"
#include "views/event_view.h"

namespace lumd {
namespace {

// Nothing when it is not one.
std::optional<uint64_t> number_in(const std::string &text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

api_reply get_events(driver &node, const api_request &request) {
  std::string port;
  if (const auto name = queried(request, "port")) {
    const auto *found = find_port(node.node(), *name);
    if (found == nullptr) return refuse_port(node.node(), *name);
    port = found->name;
  }
  const auto numbers = {std::string("since"), std::string("limit")};
  for (const std::string &key : numbers) {
    if (const auto text = queried(request, key); text && !number_in(*text)) {
      return refuse(400, "\"" + key + "\" is \"" + *text + "\", expected a number");
    }
  }
  const auto since = queried(request, "since");
  if (!accepts_event_stream(request.accept)) {
    const auto limit = queried(request, "limit");
    return {200, show_events(node, since ? *number_in(*since) : 0, port,
                             limit ? *number_in(*limit) : event_log::most_events)};
  }
  const uint64_t last = node.events().last();
  uint64_t from = since ? *number_in(*since) : last;
  if (const std::string &given = request.last_event_id; !given.empty()) {
    const auto seen = number_in(given);
    if (!seen) return refuse(400, "Last-Event-ID is \"" + given + "\", expected a number");
    from = *seen;
  }
  api_reply reply;
  // A number that no event has had is from another record: all there is may be new.
  reply.stream = std::make_shared<event_stream>(node, from > last ? 0 : from, port);
  return reply;
}

}  // namespace

std::span<const route> event_routes() {
  static constexpr route routes[] = {
      {"GET", "/v1/events", get_events, {"since", "port", "limit"}},
  };
  return routes;
}

}  // namespace lumd
