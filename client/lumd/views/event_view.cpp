#include "views/event_view.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "node/driver.h"
#include "views/times.h"

namespace lumd {

json show_event(const event &one) {
  json details = json::object();
  for (const auto &[name, value] : one.details) {
    std::visit([&, &key = name](const auto &given) { details[key] = given; }, value);
  }
  json shown = {{"number", one.number},
                {"time", utc_text_ms(one.time)},
                {"severity", name_of(lum_words::severities, one.how_bad)},
                {"kind", one.kind},
                {"port", one.port.empty() ? json() : json(one.port)},
                {"sub_port", one.sub_port ? json(*one.sub_port) : json()},
                {"text", one.text},
                {"details", std::move(details)}};
  if (one.left_out != 0) shown["left_out"] = one.left_out;
  return shown;
}

json show_event_record(driver &node) {
  const std::string problem = node.records().problem();
  return {{"last", node.events().last()},
          {"kept", problem.empty()},
          {"problem", problem.empty() ? json() : json(problem)},
          {"lost", node.events().lost()}};
}

json show_events(driver &node, uint64_t since, const std::string &port, std::size_t most) {
  const auto found = node.events().after(since, event_log::most_events);
  json shown = json::array();
  std::size_t left_out = 0;
  for (auto one = found.events.rbegin(); one != found.events.rend(); ++one) {
    if (!port.empty() && one->port != port) continue;
    if (shown.size() < most) {
      shown.push_back(show_event(*one));
    } else {
      ++left_out;
    }
  }
  std::reverse(shown.begin(), shown.end());
  json answer = {{"events", std::move(shown)},
                 {"earlier", left_out},
                 {"first", found.first == 0 ? json() : json(found.first)}};
  answer.update(show_event_record(node));
  answer["last"] = found.last;
  return answer;
}

}  // namespace lumd
