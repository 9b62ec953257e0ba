#include "commands/exchange.h"

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "base/output.h"
#include "printing/line.h"
#include "terminal/progress.h"

namespace lumctl {
namespace {

using std::chrono::milliseconds;

constexpr double longest_wait = 20;
constexpr double usual_wait = 5;

constexpr const char *wait_name = "wait";

bool was_accepted(const json &reply) {
  return reply.contains("result") && reply.at("result").is_object() &&
         reply.at("result").at("code") == 0;
}

std::optional<milliseconds> wait_of(const json &body) {
  if (!body.contains("wait_ms")) return std::nullopt;
  return milliseconds(body.at("wait_ms").get<unsigned>());
}

int finish_change(const session &now, const given &words, const json &reply, const printer &print,
                  enough wanted) {
  if (wants_json(words)) {
    print_as_json(reply);
  } else if (reply.at("result").is_object()) {
    lum_client::print(folded_notes(print(reply), now.output));
  }
  const bool complete = reply.at("complete").get<bool>() ||
                        (wanted == enough::accepted && was_accepted(reply)) ||
                        (wanted == enough::unanswered && reply.contains("pending"));
  return complete ? exit_done : fail(exit_refused, reply.at("reason").get<std::string>());
}

}  // namespace

int fail_for(const api_result &result) {
  return fail(result.what == outcome::refused ? exit_refused : exit_unreachable, result.error);
}

void print_as_json(const json &answer) {
  lum_client::print(answer.dump(2, ' ', false, json::error_handler_t::replace) + "\n");
}

int fail_for_missing_member() {
  return fail(exit_unreachable, "the driver's answer lacks something; is it another version?");
}

int show(const session &now, const given &words, const std::string &target, const printer &print) {
  const api_result result = [&] {
    const progress bar("waiting for the driver");
    return get(now.driver, target, now.patience);
  }();
  return present(words, result, print);
}

int present(const given &words, const api_result &result, const printer &print) {
  if (result.what != outcome::done) return fail_for(result);
  if (wants_json(words)) {
    print_as_json(*result.body);
    return exit_done;
  }
  try {
    lum_client::print(print(*result.body));
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
  return exit_done;
}

int change(const session &now, const given &words, const std::string &target, const json &body,
           const printer &print, enough wanted) {
  const api_result result = [&] {
    const auto wait = wait_of(body);
    const progress bar("waiting for the driver", wait);
    return post(now.driver, target, body, now.patience + wait.value_or(milliseconds(0)));
  }();
  if (result.what != outcome::done) return fail_for(result);
  try {
    return finish_change(now, words, *result.body, print, wanted);
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
}

int change_and_wait(const session &now, const given &words, const std::string &target, json body,
                    const printer &print) {
  const double seconds = words.real(wait_name, usual_wait);
  body["wait_ms"] = static_cast<unsigned>(std::lround(seconds * 1000));
  return change(now, words, target, body, print, seconds > 0 ? enough::all : enough::unanswered);
}

bool wants_json(const given &words) { return words.has(json_option); }

option own_json_option() { return {json_option, "Print it as JSON"}; }

option wait_option() {
  return {wait_name,
          fmt::format("Seconds to wait until the interface manager has confirmed; {} unless given",
                      usual_wait),
          value{.kind = value_kind::real, .within = limits{0, longest_wait}}};
}

}  // namespace lumctl
