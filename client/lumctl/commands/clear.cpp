// Counters go back to zero.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/exchange.h"
#include "wording/numbers.h"

namespace lumctl {
namespace {

std::string describe_cleared(const json &reply) {
  return fmt::format("the counters of {} are back at zero\n",
                     lum_wording::counted(reply.at("cleared").get<unsigned>(), "controller"));
}

int clear_statistics(const session &now, const given &words) {
  json body = json::object();
  if (!words.text("name").empty()) body["port"] = words.text("name");
  return change(now, words, "/v1/statistics/clear", body, describe_cleared);
}

}  // namespace

command clear_commands() {
  return {.name = "clear",
          .help = "Set counters back to zero",
          .commands = {{.name = "stats",
                        .help = "The alarm counters of a port or of all",
                        .arguments = {optional_port_name()},
                        .action = clear_statistics}}};
}

}  // namespace lumctl
