// Replays of every controller.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/exchange.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

std::string describe_replay(const json &reply) {
  return fmt::format("{} of {} confirmed\n", reply.at("confirmed").get<unsigned>(),
                     lum_wording::counted(reply.at("controllers").get<unsigned>(), "controller"));
}

std::string describe_resync(const json & /*reply*/) {
  return "the entity agent has been asked for a replay\n";
}

}  // namespace

command replay_command() {
  return {.name = "replay",
          .help = "Ask the interface manager for the controllers of every port again",
          .options = {wait_option()},
          .action = [](const session &now, const given &words) {
            return change_and_wait(now, words, "/v1/controllers/replay", json::object(),
                                   describe_replay);
          }};
}

command resync_command() {
  return {.name = "resync",
          .help = "Ask the entity agent for a replay",
          .action = [](const session &now, const given &words) {
            return change(now, words, "/v1/controllers/resync", json::object(), describe_resync);
          }};
}

}  // namespace lumctl
