// The commands that only look.
#include <fmt/format.h>

#include "api/client.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "names.h"
#include "printing/alarms_table.h"
#include "printing/controllers_table.h"
#include "printing/node_text.h"
#include "printing/pm_table.h"
#include "printing/port_text.h"
#include "printing/ports_table.h"
#include "printing/settings_text.h"
#include "words/bins.h"

namespace lumctl {
namespace {

// A look at `target` that `describe` prints for this terminal.
using description = std::string (*)(const json &answer, const style &output);

int show_as(const session &now, const given &words, const std::string &target,
            description describe) {
  return show(now, words, target, [&](const json &answer) { return describe(answer, now.output); });
}

command ports() {
  return {.name = "ports",
          .help = "Every port, with its module and readings",
          .options = {{"all", "Also ports that are described but do not exist"},
                      {"wide", "One line for each sub-port, whatever the terminal's width"}},
          .action = [](const session &now, const given &words) {
            const printer print = [&](const json &answer) {
              return describe_ports(answer, words.has("wide"), now.output);
            };
            return show(now, words, words.has("all") ? "/v1/ports" : "/v1/ports?existing", print);
          }};
}

command port() {
  return {.name = "port",
          .help = "One port in full",
          .arguments = {port_or_sub_port_name()},
          .action = [](const session &now, const given &words) {
            return show_as(now, words, "/v1/ports/" + encoded(words.text("name")), describe_port);
          }};
}

command module() {
  return {.name = "module",
          .help = "The module in a port, and a page of its memory if asked",
          .arguments = {port_or_sub_port_name()},
          .options = {{"page", "Also dump this page of the module's memory",
                       value{.kind = value_kind::whole, .within = limits{0, 255}}}},
          .action = [](const session &now, const given &words) {
            std::string target = "/v1/modules/" + encoded(words.text("name"));
            if (words.has("page")) target += fmt::format("?page={}", words.whole("page"));
            return show_as(now, words, target, describe_port);
          }};
}

command config() {
  return {.name = "config",
          .help = "The settings of ports: saved, in force, and in the module now",
          .arguments = {{"name", "Only this port, or NAME:SUBPORT",
                         value{.names = known_names::ports_and_sub_ports}, false}},
          .action = [](const session &now, const given &words) {
            std::string target = "/v1/settings?module=true";
            if (words.has("name")) target += "&port=" + encoded(words.text("name"));
            return show_as(now, words, target, describe_settings);
          }};
}

command controllers() {
  return {.name = "controllers",
          .help = "What the interface manager knows of the controllers",
          .action = [](const session &now, const given &words) {
            return show_as(now, words, "/v1/controllers", describe_controllers);
          }};
}

command node() {
  return {.name = "node",
          .help = "The node and its driver",
          .action = [](const session &now, const given &words) {
            return show(now, words, "/v1/node", describe_node);
          }};
}

command pm() {
  return {.name = "pm",
          .help = "Monitored values: now, minimum, maximum and average",
          .arguments = {{"name", "Only this port, or NAME:SUBPORT",
                         value{.names = known_names::ports_and_sub_ports}, false}},
          .options = {{"bins", "All bins of this length, instead of the current ones",
                       value{.words = as_words(lum_words::bins), .only_words = true}}},
          .action = [](const session &now, const given &words) {
            std::string query;
            if (!words.text("name").empty()) query += "&port=" + encoded(words.text("name"));
            if (words.has("bins")) query += "&bins=" + words.text("bins");
            if (!query.empty()) query.front() = '?';
            return show_as(now, words, "/v1/pm" + query, describe_pm);
          }};
}

command alarms_raised() {
  return {.name = "alarms",
          .help = "Alarms that are raised, with counters",
          .options = {{"all", "Also sub-ports without an alarm"}},
          .action = [](const session &now, const given &words) {
            return show_as(now, words, words.has("all") ? "/v1/alarms?all=true" : "/v1/alarms",
                           describe_alarms);
          }};
}

}  // namespace

command show_commands() {
  return {.name = "show",
          .help = "Show the node, its ports and what is in them",
          .commands = {ports(), port(), controllers(), module(), config(), node(), pm(),
                       alarms_raised()}};
}

}  // namespace lumctl
