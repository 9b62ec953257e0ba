// What has happened on the node.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "api/client.h"
#include "base/output.h"
#include "command_line/moment.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "printing/events_text.h"

namespace lumctl {
namespace {

using std::chrono::system_clock;

constexpr std::chrono::seconds between_questions(1);

// Times of the driver are in UTC, and so in the order of their texts.
std::string utc_text(moment when) {
  const auto ms = std::chrono::floor<std::chrono::milliseconds>(when);
  const std::time_t seconds = system_clock::to_time_t(ms);
  std::tm parts = {};
  ::gmtime_r(&seconds, &parts);
  char text[32] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  return fmt::format("{}.{:03d}Z", text, ms.time_since_epoch().count() % 1000);
}

struct wanted_events {
  std::string port;
  std::string not_before;  // a time of the driver's; empty: any
};

std::string target_of(const wanted_events &wanted, std::uint64_t since) {
  std::string target = fmt::format("/v1/events?since={}", since);
  if (!wanted.port.empty()) target += "&port=" + encoded(wanted.port);
  return target;
}

void keep_wanted(const wanted_events &wanted, json &answer) {
  json &events = answer.at("events");
  events.erase(std::remove_if(events.begin(), events.end(),
                              [&](const json &one) {
                                return one.at("time").get<std::string>() < wanted.not_before;
                              }),
               events.end());
}

std::string one_line(const json &event) {
  return event.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

// From an answer on, each event once as it comes. A driver that is gone is waited for: what is
// still to come is what somebody wants to see.
[[noreturn]] void follow(const session &now, const wanted_events &wanted, bool as_json,
                         std::uint64_t last) {
  for (bool is_there = true;;) {
    std::this_thread::sleep_for(between_questions);
    const api_result result = get(now.driver, target_of(wanted, last), now.patience);
    if (result.what != outcome::done) {
      if (std::exchange(is_there, false))
        lum_client::complain("lumctl: " + result.error + "; waiting for it\n");
      continue;
    }
    if (!std::exchange(is_there, true)) lum_client::complain("lumctl: the driver answers again\n");
    const auto newest = result.body->at("last").get<std::uint64_t>();
    if (newest < last) {
      last = 0;  // another record than before: all of it is new
      continue;
    }
    for (const json &event : result.body->at("events")) {
      lum_client::print(as_json ? one_line(event) : describe_event(event, now.output));
    }
    last = newest;
  }
}

int events(const session &now, const given &words) {
  wanted_events wanted;
  wanted.port = words.text("name");
  if (const auto since = words.text("since"); !since.empty()) {
    const auto at = std::chrono::time_point_cast<std::chrono::microseconds>(system_clock::now());
    wanted.not_before = utc_text(*read_moment(since, at));
  }
  const bool follows = words.has("follow");
  std::uint64_t last = 0;
  const auto print = [&](json answer) {
    keep_wanted(wanted, answer);
    last = answer.at("last").get<std::uint64_t>();
    return answer;
  };
  const api_result result = get(now.driver, target_of(wanted, 0), now.patience);
  if (result.what != outcome::done) return fail_for(result);
  try {
    const json answer = print(*result.body);
    if (!wants_json(words)) {
      lum_client::print(describe_events(answer, now.output));
    } else if (!follows) {
      print_as_json(answer);
    } else {
      for (const json &event : answer.at("events")) lum_client::print(one_line(event));
    }
    if (follows) follow(now, wanted, wants_json(words), last);
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
  return exit_done;
}

}  // namespace

command events_command() {
  return {.name = "events",
          .help = "What has happened: ports, modules, alarms, settings, trouble and its end",
          .arguments = {optional_port_name()},
          .options = {{"since",
                       "Only what has happened since: how long ago, such as 10m, or when, such as "
                       "08:00",
                       value{.wrong = wrong_with_moment}},
                      {"follow", "Go on with what happens, until interrupted"}},
          .action = events};
}

}  // namespace lumctl
