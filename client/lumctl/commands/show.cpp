// The commands that only look.
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>

#include "api/client.h"
#include "command_line/moment.h"
#include "commands/commands.h"
#include "commands/exchange.h"
#include "commands/port_selection.h"
#include "names.h"
#include "printing/alarms_table.h"
#include "printing/controllers_table.h"
#include "printing/history_text.h"
#include "printing/line.h"
#include "printing/module_text.h"
#include "printing/node_text.h"
#include "printing/pm_table.h"
#include "printing/port_text.h"
#include "printing/ports_table.h"
#include "printing/settings_text.h"
#include "terminal/progress.h"
#include "words/bins.h"

namespace lumctl {
namespace {

// A look at `target` that `describe` prints for this terminal.
using description = std::string (*)(const json &answer, const style &output);

int show_as(const session &now, const given &words, const std::string &target,
            description describe) {
  return show(now, words, target, [&](const json &answer) { return describe(answer, now.output); });
}

int show_ports(const session &now, const given &words) {
  if (const std::string twice = form_given_twice(words); !twice.empty()) {
    return fail(exit_usage, "show ports: " + twice);
  }
  const port_selection wanted = selection_of(words);
  api_result result;
  std::size_t of = 0;
  try {
    const progress bar("waiting for the driver");
    result = ask_for_ports(now, wanted);
    if (result.what == outcome::done) {
      json selected = *result.body;
      of = select_ports(selected, wanted);
      result.body = std::make_shared<const json>(std::move(selected));
    }
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
  return present(words, result, [&](const json &answer) {
    const std::string none = describe_selection(answer, wanted, of);
    return none.empty() ? describe_ports(answer, wish_of(words), now.output) : none;
  });
}

command ports() {
  std::vector<option> options = form_options();
  for (option &one : selection_options()) options.push_back(std::move(one));
  return {.name = "ports",
          .help = "Every port, with its module and readings",
          .arguments = {selected_names()},
          .options = options,
          .action = show_ports};
}

command port() {
  return {.name = "port",
          .help = "One port: its state, its module and its sub-ports",
          .arguments = {port_or_sub_port_name()},
          .options = {{"verbose", "Also handles, raw values, bytes, records and transfers"}},
          .action = [](const session &now, const given &words) {
            const printer print = [&](const json &answer) {
              return describe_port(answer, words.has("verbose"), now.output);
            };
            return show(now, words, "/v1/ports/" + encoded(words.text("name")), print);
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
            return show_as(now, words, target, describe_module);
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
            const printer print = [&](const json &answer) {
              return folded_lines(describe_node(answer), now.output);
            };
            return show(now, words, "/v1/node", print);
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

double seconds_of(moment when) {
  return std::chrono::duration<double>(when.time_since_epoch()).count();
}

int show_history(const session &now, const given &words) {
  using std::chrono::microseconds;
  const auto at = std::chrono::time_point_cast<microseconds>(std::chrono::system_clock::now());
  const std::string since = words.text("since");
  api_result result =
      get(now.driver, "/v1/ports/" + encoded(words.text("name")) + "/history", now.patience);
  try {
    if (result.what == outcome::done && !since.empty()) {
      json wanted = *result.body;
      keep_polls_since(seconds_of(*read_moment(since, at)), wanted);
      result.body = std::make_shared<const json>(std::move(wanted));
    }
  } catch (const json::exception &) {
    return fail_for_missing_member();
  }
  return present(words, result,
                 [&](const json &answer) { return describe_history(answer, now.output); });
}

command history() {
  return {
      .name = "history",
      .help = "The readings of a port over the last hours, as rows of bars",
      .arguments = {port_or_sub_port_name()},
      .options = {{"since", "Only from then on: how long ago, such as 30m, or when, such as 08:00",
                   value{.wrong = wrong_with_moment}}},
      .action = show_history};
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
          .commands = {ports(), port(), controllers(), module(), config(), node(), pm(), history(),
                       alarms_raised()}};
}

}  // namespace lumctl
