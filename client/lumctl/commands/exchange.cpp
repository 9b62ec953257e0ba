#include "commands/exchange.h"

#include <fmt/format.h>

#include <cmath>

#include "terminal/progress.h"

namespace lumctl {
namespace {

constexpr double longest_wait = 20;

bool was_accepted(const json &reply) {
  return reply.contains("result") && reply.at("result").is_object() &&
         reply.at("result").at("code") == 0;
}

std::optional<std::chrono::milliseconds> wait_of(const json &body) {
  if (!body.contains("wait_ms")) return std::nullopt;
  return std::chrono::milliseconds(body.at("wait_ms").get<unsigned>());
}

}  // namespace

std::shared_ptr<waiting> add_wait(CLI::App &command) {
  auto wanted = std::make_shared<waiting>();
  command
      .add_option("--wait", wanted->seconds,
                  "Seconds to wait until the interface manager has confirmed; 5 unless given")
      ->check(CLI::Range(0.0, longest_wait));
  return wanted;
}

void put_wait(const waiting &wanted, json &body) {
  body["wait_ms"] = static_cast<unsigned>(std::lround(wanted.seconds * 1000));
}

int change(const command_line &line, const std::string &target, const json &body,
           const std::function<void(const json &)> &print, bool must_be_complete) {
  const api_result result = [&] {
    const progress bar("waiting for the driver", wait_of(body));
    return call(line.socket, "POST", target, body);
  }();
  if (result.what == outcome::refused) return fail(exit_refused, result.error);
  if (result.what == outcome::unreachable) return fail(exit_unreachable, result.error);
  try {
    const json &reply = result.body;
    if (line.as_json) {
      fmt::print("{}\n", reply.dump(2, ' ', false, json::error_handler_t::replace));
    } else if (reply.at("result").is_object()) {
      print(reply);
    }
    const bool complete =
        reply.at("complete").get<bool>() || (!must_be_complete && was_accepted(reply));
    std::fflush(stdout);
    return complete ? exit_done
                    : fail(exit_refused, printable(reply.at("reason").get<std::string>()));
  } catch (const json::exception &) {
    return fail(exit_unreachable, "the driver's answer lacks something; is it another version?");
  }
}

int change(const command_line &line, const std::string &target, json body, const waiting &wanted,
           const std::function<void(const json &)> &print) {
  put_wait(wanted, body);
  return change(line, target, body, print, wanted.seconds > 0);
}

void finish(CLI::App &command, command_line &line, std::function<int()> action) {
  command.add_flag("--json", line.as_json, "Print what the driver answered");
  command.callback([&line, action = std::move(action)] { line.chosen = action; });
}

}  // namespace lumctl
